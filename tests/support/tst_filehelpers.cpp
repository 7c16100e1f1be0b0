// ctest-timeout: 30
// The dump-folder listing, the copy into the operator's folder and the replace
// question, on real files in the test's own home.

#include "support/FileHelpers.h"
#include "support/Support.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QThread>
#include <QTimeZone>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

int g_folders = 0;

QString freshFolder()
{
    return makeDir(QStringLiteral("files%1").arg(++g_folders));
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(content);
}

void setDate(const QString &path, QFileDevice::FileTime which, int hour)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadWrite));
    QVERIFY(f.setFileTime(QDateTime(QDate(2026, 3, 1), QTime(hour, 0), QTimeZone::utc()), which));
}

QStringList listed(const QString &folder, ContentDate by, bool ascending,
                   ListingOptions options = ListingOption::none)
{
    const DirectoryListing l =
        contentsOfDirectory(QStringLiteral("blz"), QUrl::fromLocalFile(folder), by, ascending, options);
    if (!l.ok)
        qWarning("listing failed: %s", qPrintable(l.error));
    return l.names;
}

// Everything in the folder, hidden entries included: what the operator would
// find there afterwards.
QStringList everythingIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                  QDir::Name);
}

} // namespace

class FileHelpersTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void extensionIsTheTextAfterTheLastDot_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("type");
        QTest::addColumn<bool>("matches");
        QTest::newRow("dump") << "dump.blz"
                              << "blz" << true;
        QTest::newRow("capitals") << "dump.BLZ"
                                  << "blz" << false;
        QTest::newRow("later extension") << "dump.blz.old"
                                         << "blz" << false;
        QTest::newRow("no dot") << "blz"
                                << "blz" << false;
        QTest::newRow("hidden dump") << ".blz"
                                     << "blz" << true;
        QTest::newRow("trailing dot") << "dump.blz."
                                      << "blz" << false;
        QTest::newRow("longer") << "dump.blzz"
                                << "blz" << false;
        QTest::newRow("no extension asked") << "README"
                                            << "" << true;
        QTest::newRow("extension when none asked") << "a.blz"
                                                   << "" << false;
    }
    void extensionIsTheTextAfterTheLastDot()
    {
        QFETCH(QString, name);
        QFETCH(QString, type);
        QFETCH(bool, matches);
        QCOMPARE(hasExtension(name, type), matches);
    }

    void listingKeepsOnlyDumpFilesByName()
    {
        const QString folder = freshFolder();
        for (const char *name :
             {"dump.blz", "a.blz", ".hidden.blz", "dump.BLZ", "dump.blz.old", "blz", "notes.txt"})
            writeFile(folder + QLatin1Char('/') + QLatin1String(name), "x");
        QVERIFY(QDir(folder).mkdir(QStringLiteral("folder.blz")));

        QStringList all = listed(folder, ContentDate::modified, true);
        all.sort();
        QCOMPARE(all, (QStringList{QStringLiteral(".hidden.blz"), QStringLiteral("a.blz"),
                                   QStringLiteral("dump.blz")}));
        QStringList visible = listed(folder, ContentDate::modified, true, ListingOption::skipsHiddenFiles);
        visible.sort();
        QCOMPARE(visible, (QStringList{QStringLiteral("a.blz"), QStringLiteral("dump.blz")}));
    }

    void listingWithoutDumpsIsEmptyAndAMissingFolderFails()
    {
        const QString folder = freshFolder();
        writeFile(folder + QStringLiteral("/report.txt"), "x");
        const DirectoryListing empty = contentsOfDirectory(QStringLiteral("blz"), QUrl::fromLocalFile(folder),
                                                           ContentDate::created, false);
        QVERIFY(empty.ok);
        QVERIFY(empty.names.isEmpty());

        const DirectoryListing missing =
            contentsOfDirectory(QStringLiteral("blz"), QUrl::fromLocalFile(folder + QStringLiteral("/gone")),
                                ContentDate::created, false);
        QVERIFY(!missing.ok);
        QVERIFY(missing.error.contains(QStringLiteral("gone")));

        QVERIFY(!contentsOfDirectory(QStringLiteral("blz"), QUrl::fromLocalFile(QString()),
                                     ContentDate::created, false)
                     .ok);
    }

    // Files made in one order and dated in another, so neither the folder's
    // own order nor the wrong date gives the expected answer by accident.
    void listingOrdersByTheDateAskedFor_data()
    {
        QTest::addColumn<int>("date");
        QTest::newRow("modified") << int(ContentDate::modified);
        QTest::newRow("accessed") << int(ContentDate::accessed);
    }
    void listingOrdersByTheDateAskedFor()
    {
        QFETCH(int, date);
        const auto by = ContentDate(date);
        const QFileDevice::FileTime stamp =
            by == ContentDate::modified ? QFileDevice::FileModificationTime : QFileDevice::FileAccessTime;
        const QString folder = freshFolder();
        const QList<QPair<QString, int>> files{{QStringLiteral("noon.blz"), 12},
                                               {QStringLiteral("ten.blz"), 10},
                                               {QStringLiteral("eleven.blz"), 11}};
        for (const auto &[name, hour] : files) {
            writeFile(folder + QLatin1Char('/') + name, "x");
            // The other date runs the opposite way.
            setDate(folder + QLatin1Char('/') + name,
                    by == ContentDate::modified ? QFileDevice::FileAccessTime
                                                : QFileDevice::FileModificationTime,
                    24 - hour);
            setDate(folder + QLatin1Char('/') + name, stamp, hour);
        }
        QCOMPARE(listed(folder, by, false),
                 (QStringList{QStringLiteral("noon.blz"), QStringLiteral("eleven.blz"),
                              QStringLiteral("ten.blz")}));
        QCOMPARE(listed(folder, by, true),
                 (QStringList{QStringLiteral("ten.blz"), QStringLiteral("eleven.blz"),
                              QStringLiteral("noon.blz")}));
    }

    // Birth times cannot be set, so the files are made one after the other;
    // their modification dates run the other way and must not count.
    void listingOrdersByCreation()
    {
        const QString folder = freshFolder();
        const QStringList made{QStringLiteral("m.blz"), QStringLiteral("z.blz"), QStringLiteral("a.blz")};
        int hour = 12;
        for (const QString &name : made) {
            writeFile(folder + QLatin1Char('/') + name, "x");
            setDate(folder + QLatin1Char('/') + name, QFileDevice::FileModificationTime, hour--);
            QThread::msleep(20);
        }
        QCOMPARE(listed(folder, ContentDate::created, true), made);
        QCOMPARE(listed(folder, ContentDate::created, false),
                 (QStringList{made.at(2), made.at(1), made.at(0)}));
    }

    void replaceQuestionNamesTheFileAndItsFolder()
    {
        QCOMPARE(replaceQuestion(QStringLiteral("/Users/op/Desktop/dumps/drive.blz")),
                 QStringLiteral("Replace \"drive.blz\" in \"dumps\" with new file?"));
        QCOMPARE(replaceQuestion(QStringLiteral("/x.blz")),
                 QStringLiteral("Replace \"x.blz\" in \"/\" with new file?"));
    }

    void copyIntoFolderWithoutThatNameAsksNothing()
    {
        const QString from = freshFolder();
        const QString to = freshFolder();
        writeFile(from + QStringLiteral("/drive.blz"), "new dump");
        DialogScript script;
        QVERIFY(Support().copyFile(from + QStringLiteral("/drive.blz"), to));
        QCOMPARE(readFile(to + QStringLiteral("/drive.blz")), QByteArray("new dump"));
        QCOMPARE(everythingIn(to), QStringList{QStringLiteral("drive.blz")});
        QVERIFY(script.seen().isEmpty());
    }

    void copyOntoExistingFileAsksAndHonoursTheAnswer_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QByteArray>("after");
        QTest::newRow("Cancel keeps the old file") << "Cancel" << QByteArray("old dump");
        QTest::newRow("OK puts the new file in its place") << "OK" << QByteArray("new dump");
    }
    void copyOntoExistingFileAsksAndHonoursTheAnswer()
    {
        QFETCH(QString, answer);
        QFETCH(QByteArray, after);
        const QString from = freshFolder();
        const QString to = freshFolder();
        writeFile(from + QStringLiteral("/drive.blz"), "new dump");
        writeFile(to + QStringLiteral("/drive.blz"), "old dump");
        QStringList duringQuestion;
        DialogScript script;
        script.then([&](QWidget *dialog, const SeenDialog &) {
            duringQuestion = everythingIn(to);
            clickButton(dialog, answer);
        });
        QVERIFY(Support().copyFile(from + QStringLiteral("/drive.blz"), to));
        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(
            script.seen().first().title,
            QStringLiteral("Replace \"drive.blz\" in \"%1\" with new file?").arg(QFileInfo(to).fileName()));
        QCOMPARE(script.seen().first().buttons,
                 (QStringList{QStringLiteral("OK"), QStringLiteral("Cancel")}));
        // The copy waited beside the file, so the replacement is a rename.
        QCOMPARE(duringQuestion.size(), 2);
        QCOMPARE(readFile(to + QStringLiteral("/drive.blz")), after);
        QCOMPARE(everythingIn(to), QStringList{QStringLiteral("drive.blz")});
        QCOMPARE(readFile(from + QStringLiteral("/drive.blz")), QByteArray("new dump"));
    }

    void failuresLeaveEverythingAsItWas()
    {
        const QString from = freshFolder();
        writeFile(from + QStringLiteral("/drive.blz"), "new dump");
        DialogScript script;
        // No folder to copy into, and no file to copy.
        QVERIFY(!Support().copyFile(from + QStringLiteral("/drive.blz"), from + QStringLiteral("/missing")));
        const QString to = freshFolder();
        QVERIFY(!Support().copyFile(from + QStringLiteral("/gone.blz"), to));
        QVERIFY(everythingIn(to).isEmpty());
        QVERIFY(script.seen().isEmpty());

        // A folder where the file would go cannot be replaced by it, whatever
        // the operator answers.
        QVERIFY(QDir(to).mkpath(QStringLiteral("drive.blz/inside")));
        script.press(QStringLiteral("OK"));
        QVERIFY(Support().copyFile(from + QStringLiteral("/drive.blz"), to));
        QCOMPARE(script.seen().size(), 1);
        QVERIFY(QFileInfo(to + QStringLiteral("/drive.blz/inside")).isDir());
    }
};

TAPEDESK_TEST_MAIN(FileHelpersTest)
#include "tst_filehelpers.moc"
