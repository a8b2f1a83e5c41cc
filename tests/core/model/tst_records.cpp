#include "TestEnvironment.h"
#include "app/Preferences.h"
#include "model/Commit.h"
#include "model/File.h"
#include "model/NullReplacement.h"
#include "model/TWUtilities.h"

#include <QCborValue>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

class TestRecords : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    void fileFromPath_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("pathOnly");
        QTest::newRow("root file") << u"index.html"_s << u"index.html"_s << u""_s;
        QTest::newRow("nested") << u"a/data/data.txt"_s << u"data.txt"_s << u"a/data/"_s;
        // Every occurrence of the name goes, even inside folder names.
        QTest::newRow("name repeated as folder") << u"lib/lib"_s << u"lib"_s << u"/"_s;
        QTest::newRow("name inside a folder name")
            << u"css/site.css/x/site.css"_s << u"site.css"_s << u"css//x/"_s;
    }

    void fileFromPath() {
        QFETCH(QString, path);
        QFETCH(QString, name);
        QFETCH(QString, pathOnly);
        const FilePtr file = File::initWithPath(path);
        QCOMPARE(file->name, name);
        QCOMPARE(file->pathWithFilename, path);
        QCOMPARE(file->pathOnly, pathOnly);
        QVERIFY(file->willUpload);
        QVERIFY(!file->gitStatus);
        QVERIFY(!file->status);
    }

    void fileNameOrPathFollowsThePreference() {
        test::TestEnvironment::resetPreferences();
        const FilePtr file = File::initWithPath(QStringLiteral("css/site.css"));
        QCOMPARE(file->nameOrPath(), QStringLiteral("site.css"));
        Preferences::instance().setBool(QStringLiteral("showFullPath"), true);
        QCOMPARE(file->nameOrPath(), QStringLiteral("css/site.css"));
    }

    void fileIsDirectory() {
        QTemporaryDir root;
        QDir(root.path()).mkpath(QStringLiteral("assets/img"));
        QFile(root.path() + QStringLiteral("/assets/a.txt")).open(QIODevice::WriteOnly);
        QVERIFY(File::initWithPath(QStringLiteral("assets/img"))->isDirectory(root.path()));
        QVERIFY(!File::initWithPath(QStringLiteral("assets/a.txt"))->isDirectory(root.path()));
        QVERIFY(!File::initWithPath(QStringLiteral("missing"))->isDirectory(root.path()));
    }

    void fileJsonKeepsFourFieldsAndNullsBecomeBlanks() {
        File empty;
        const auto text = empty.jsonObject();
        QVERIFY(text);
        const QJsonObject dict = QJsonDocument::fromJson(text->toUtf8()).object();
        QCOMPARE(dict.keys(), (QStringList{u"name"_s, u"pathOnly"_s, u"pathWithFilename"_s, u"status"_s}));
        for (const QString& key : dict.keys())
            QVERIFY(dict.value(key).isNull());

        const FilePtr back = File::initWithDict(dictionaryByReplacingNullsWithBlanks(dict));
        QCOMPARE(back->name, QString());
        QCOMPARE(back->pathWithFilename, QString());
        QCOMPARE(back->pathOnly, QString());
        QCOMPARE(back->status, QString());
        QVERIFY(back->name.has_value());
        QVERIFY(!back->willUpload);
        QVERIFY(!back->gitStatus);

        // A mandatory entry survives the JSON form; gitStatus and the check mark do not.
        const FilePtr file = File::initWithPath(QStringLiteral("a/b.txt"));
        file->gitStatus = QStringLiteral("M");
        const FilePtr copy =
            File::initWithDict(QJsonDocument::fromJson(file->jsonObject()->toUtf8()).object());
        QCOMPARE(copy->pathWithFilename, QStringLiteral("a/b.txt"));
        QCOMPARE(copy->pathOnly, QStringLiteral("a/"));
        QVERIFY(!copy->status);
        QVERIFY(!copy->gitStatus);
        QVERIFY(!copy->willUpload);
    }

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
        QCOMPARE(file->encode().keys().size(), 6);

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

    void commitJson() {
        Commit commit;
        QVERIFY(!commit.jsonObject());
        commit.sha1 = QStringLiteral("abc1234");
        commit.comment = QStringLiteral("Fix");
        commit.deployedWhen = QDateTime::currentDateTime();
        const QJsonObject dict = *commit.jsonObject();
        QCOMPARE(dict.keys(), (QStringList{u"author"_s, u"comment"_s, u"sha1"_s, u"time"_s}));
        QVERIFY(dict.value(u"author").isNull());

        for (const QJsonValue& notAnObject :
             {QJsonValue(QString()), QJsonValue(3), QJsonValue(QJsonArray{1})}) {
            const CommitPtr empty = Commit::initWithDict(notAnObject);
            QVERIFY(empty);
            QVERIFY(!empty->sha1 && !empty->author && !empty->time && !empty->comment);
        }
        const CommitPtr back = Commit::initWithDict(dict);
        QCOMPARE(back->sha1, QStringLiteral("abc1234"));
        QCOMPARE(back->comment, QStringLiteral("Fix"));
        QVERIFY(!back->deployedWhen);
    }

    void nullReplacementAtDepth() {
        const QJsonObject input = QJsonDocument::fromJson(QByteArrayLiteral(R"({
            "a": null,
            "list": [null, {"b": null, "deeper": [[null]]}, 3],
            "keep": false
        })"))
                                      .object();
        const QJsonObject out = dictionaryByReplacingNullsWithBlanks(input);
        QCOMPARE(out.value(u"a"), QJsonValue(QString()));
        const QJsonArray list = out.value(u"list").toArray();
        QCOMPARE(list.at(0), QJsonValue(QString()));
        QCOMPARE(list.at(1).toObject().value(u"b"), QJsonValue(QString()));
        QCOMPARE(list.at(1).toObject().value(u"deeper").toArray().at(0).toArray().at(0),
                 QJsonValue(QString()));
        QCOMPARE(list.at(2), QJsonValue(3));
        QCOMPARE(out.value(u"keep"), QJsonValue(false));

        // Deep nesting does not need a depth limit.
        QJsonValue deep = QJsonValue::Null;
        for (int i = 0; i < 500; ++i)
            deep = QJsonArray{deep};
        QJsonValue result = arrayByReplacingNullsWithBlanks(deep.toArray());
        for (int i = 0; i < 500; ++i)
            result = result.toArray().at(0);
        QCOMPARE(result, QJsonValue(QString()));
    }

    void fixSlashes() {
        QCOMPARE(TWUtilities::fixSlashes(QStringLiteral("/www")), QStringLiteral("/www/"));
        QCOMPARE(TWUtilities::fixSlashes(QStringLiteral("/www/")), QStringLiteral("/www/"));
        QCOMPARE(TWUtilities::fixSlashes(QStringLiteral("/www//")), QStringLiteral("/www//"));
        QCOMPARE(TWUtilities::fixSlashes(QString()), QString());
        QCOMPARE(TWUtilities::fixSlashes(std::nullopt), QString());
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
