#include "EmptyTablePlaceholder.h"
#include "ImageResources.h"
#include "TestEnvironment.h"

#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The placeholder over the file table: each state shows exactly its parts.
class TestEmptyTable : public QObject {
    Q_OBJECT

    struct Shown {
        bool image, text, addSite, checkOut;
        bool operator==(const Shown&) const = default;
    };

    static Shown shown(const EmptyTableViewController& controller) {
        return {!controller.imageView()->isHidden(), !controller.textView()->isHidden(),
                !controller.btnAddSite()->isHidden(), !controller.btnCheckOut()->isHidden()};
    }

private slots:
    void initTestCase() { test::TestEnvironment::isolate(); }

    void everyStateShowsExactlyItsParts_data() {
        QTest::addColumn<QString>("state");
        QTest::addColumn<QString>("image");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("textShown");
        QTest::addColumn<bool>("addSite");
        QTest::addColumn<bool>("checkOut");
        QTest::newRow("hideAll") << u"hideAll"_s << QString() << QString() << false << false << false;
        QTest::newRow("has files") << u"hasFiles"_s << QString() << QString() << false << false << false;
        QTest::newRow("all deployed") << u"noFiles"_s << u"cloud_tick"_s
                                      << u"All files deployed. Good work!"_s << true << false << false;
        QTest::newRow("not a repository")
            << u"notValid"_s << u"ui-cross-2"_s << u"No valid git repository"_s << true << false << false;
        QTest::newRow("wrong branch")
            << u"wrongBranch"_s << u"git"_s << u"A non-deployment branch"_s << true << false << true;
        // The text is set but deliberately stays hidden.
        QTest::newRow("no sites") << u"noSites"_s << u"RocketLaunch"_s << u"No sites defined."_s << false
                                  << true << false;
    }
    void everyStateShowsExactlyItsParts() {
        QFETCH(QString, state);
        QFETCH(QString, image);
        QFETCH(QString, text);
        QFETCH(bool, textShown);
        QFETCH(bool, addSite);
        QFETCH(bool, checkOut);

        EmptyTablePlaceholder placeholder;
        placeholder.resize(500, 400);
        placeholder.show();
        EmptyTableViewController& controller = placeholder.controller();
        // Start from the busiest state, so every part has something to hide.
        controller.wrongBranchIsSelectedWith(u"old"_s, u"old"_s);
        controller.noSitesDefined();
        placeholder.addSiteButton()->show();
        placeholder.checkOutButton()->show();
        placeholder.textView()->show();

        if (state == u"hideAll")
            controller.hideAll();
        else if (state == u"hasFiles")
            controller.hasFilesToDeployWithStatus(true);
        else if (state == u"noFiles")
            controller.hasFilesToDeployWithStatus(false);
        else if (state == u"notValid")
            controller.notValidGitRepoWith(text);
        else if (state == u"wrongBranch")
            controller.wrongBranchIsSelectedWith(text, u"main"_s);
        else if (state == u"noSites")
            controller.noSitesDefined();

        QCOMPARE(shown(controller), (Shown{!image.isEmpty(), textShown, addSite, checkOut}));
        QCOMPARE(controller.imageName(), image);
        QCOMPARE(controller.isShowingAnything(), !image.isEmpty());
        if (!text.isEmpty())
            QCOMPARE(controller.textView()->text(), text);
        if (!image.isEmpty()) {
            QVERIFY(ImageResources::exists(image));
            const QPixmap pixmap = controller.imageView()->pixmap();
            QVERIFY(!pixmap.isNull());
            // The SVG really drew something.
            const QImage drawn = pixmap.toImage();
            bool painted = false;
            for (int y = 0; y < drawn.height() && !painted; y += 2)
                for (int x = 0; x < drawn.width() && !painted; x += 2)
                    painted = qAlpha(drawn.pixel(x, y)) > 0;
            QVERIFY(painted);
        }
        if (checkOut)
            QCOMPARE(controller.btnCheckOut()->text(), u"Check out branch 'main'"_s);
    }

    void imageIsFaint() {
        EmptyTablePlaceholder placeholder;
        auto* effect = qobject_cast<QGraphicsOpacityEffect*>(placeholder.imageView()->graphicsEffect());
        QVERIFY(effect);
        QCOMPARE(effect->opacity(), 0.2);
    }

    void buttonsAreSignalled() {
        EmptyTablePlaceholder placeholder;
        placeholder.show();
        QSignalSpy add(&placeholder, &EmptyTablePlaceholder::addSiteClicked);
        QSignalSpy checkOut(&placeholder, &EmptyTablePlaceholder::checkOutClicked);
        placeholder.controller().noSitesDefined();
        QTest::mouseClick(placeholder.addSiteButton(), Qt::LeftButton);
        placeholder.controller().wrongBranchIsSelectedWith(u"x"_s, u"main"_s);
        QTest::mouseClick(placeholder.checkOutButton(), Qt::LeftButton);
        QCOMPARE(add.size(), 1);
        QCOMPARE(checkOut.size(), 1);
    }

    // Views that went away before their controller are skipped.
    void outlivedViews() {
        auto* image = new QLabel;
        auto* text = new QLabel;
        auto* add = new QPushButton;
        auto* checkOut = new QPushButton;
        EmptyTableViewController controller(image, text, add, checkOut);
        delete image;
        delete checkOut;
        controller.wrongBranchIsSelectedWith(u"x"_s, u"main"_s);
        controller.noSitesDefined();
        QVERIFY(!add->isHidden());
        delete text;
        delete add;
    }

    void everyImageIsThere() {
        for (const QString& name : {u"cloud_tick"_s, u"ui-cross-2"_s, u"git"_s, u"RocketLaunch"_s,
                                    u"ui-window-2"_s, u"ui-window-2-highlight"_s, u"tarnwell"_s}) {
            QVERIFY2(ImageResources::exists(name), qPrintable(name));
            QVERIFY2(!ImageResources::icon(name).pixmap(32, 32).isNull(), qPrintable(name));
        }
        QVERIFY(!ImageResources::exists(u"nothing"_s));
    }
};

QTEST_MAIN(TestEmptyTable)
#include "tst_emptytable.moc"
