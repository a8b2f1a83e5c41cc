#include "TestEnvironment.h"
#include "model/Commit.h"
#include "model/File.h"

#include <QCborValue>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

class TestRecords : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    void archivesKeepAbsentApartFromEmpty() {
        const FilePtr file = File::initWithPath(QStringLiteral("x/y.txt"));
        file->status = QString();
        file->gitStatus = QStringLiteral("D");
        const FilePtr back = File::decode(QCborValue::fromCbor(file->encode().toCborValue().toCbor()));
        QVERIFY(back);
        QCOMPARE(back->status, QString());
        QVERIFY(back->status.has_value());
        QCOMPARE(back->gitStatus, QStringLiteral("D"));
        QCOMPARE(back->pathOnly, QStringLiteral("x/"));
        QVERIFY(back->willUpload);

        Commit commit;
        commit.sha1 = QStringLiteral("a1b2c3d");
        commit.deployedWhen = QDateTime::fromMSecsSinceEpoch(86400500, Qt::UTC);
        const CommitPtr decoded =
            Commit::decode(QCborValue::fromCbor(commit.encode().toCborValue().toCbor()));
        QVERIFY(decoded);
        QCOMPARE(decoded->sha1, QStringLiteral("a1b2c3d"));
        QVERIFY(!decoded->author);
        QCOMPARE(decoded->deployedWhen, commit.deployedWhen);
        QVERIFY(!File::decode(QCborValue(42)));
        QVERIFY(!Commit::decode(QCborValue(QStringLiteral("x"))));
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
