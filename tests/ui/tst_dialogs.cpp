// ctest-timeout: 60
// The four questions the workflows ask, answered through the real widgets: the
// in-band answers ("-1", 0/1, ""), the button order and what the pickers offer.

#include "support/Dialogs.h"
#include "support/Support.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"

#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QLineEdit>
#include <QToolButton>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QString kAskName = QStringLiteral("Assign tape name (6 character alphanumeric: EG: KT1234)");

// A folder with firmware images, look-alikes, hidden files and a subfolder.
QString firmwareFolder()
{
    QString dir = makeDir(QStringLiteral("firmware"));
    for (const char *name : {"new.fmrz", "old.fm", "notes.txt", ".hidden.fm", ".profile", "new.fmrz.bak"}) {
        QFile f(dir + QLatin1Char('/') + QLatin1String(name));
        if (f.open(QIODevice::WriteOnly))
            f.write("x");
    }
    QDir().mkpath(dir + QStringLiteral("/sub"));
    return dir;
}

// The entries a file dialog lists in its current folder: files, and folders
// with a trailing "/".
QStringList listed(QFileDialog *fd)
{
    auto *model = fd->findChild<QFileSystemModel *>();
    if (!model)
        return {QStringLiteral("<no model>")};
    const QModelIndex root = model->index(fd->directory().absolutePath());
    QStringList names;
    for (int r = 0; r < model->rowCount(root); ++r) {
        const QModelIndex i = model->index(r, 0, root);
        names << model->fileName(i) + (model->isDir(i) ? QStringLiteral("/") : QString());
    }
    names.sort();
    return names;
}

// Waits, inside the running dialog, until its listing is what is expected.
QStringList listedOnceLoaded(QFileDialog *fd, const QStringList &expected)
{
    waitUntil([&] { return listed(fd) == expected; }, 5000);
    return listed(fd);
}

// Types `name` into the dialog's file name field, as the operator would, and
// confirms. (selectFile() leaves the field alone once it has the focus.)
void enterAndAccept(QFileDialog *fd, const QString &name)
{
    if (auto *field = fd->findChild<QLineEdit *>(QStringLiteral("fileNameEdit")))
        field->setText(name);
    QMetaObject::invokeMethod(fd, "accept", Qt::QueuedConnection);
}

} // namespace

class DialogsTest : public QObject
{
    Q_OBJECT

    Support support;

private Q_SLOTS:
    void getStringReturnsTheFieldAsTyped_data()
    {
        QTest::addColumn<QString>("defaultValue");
        QTest::addColumn<QString>("typed"); // null: leave the field alone
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("expected");
        QTest::newRow("default kept on OK") << "KT1234" << QString() << "OK"
                                            << "KT1234";
        QTest::newRow("empty default, OK") << "" << QString() << "OK"
                                           << "";
        QTest::newRow("typed -1 is returned") << ""
                                              << "-1"
                                              << "OK"
                                              << "-1";
        QTest::newRow("blanks kept") << ""
                                     << " KT1234 "
                                     << "OK"
                                     << " KT1234 ";
        QTest::newRow("case kept") << ""
                                   << "kt12ab"
                                   << "OK"
                                   << "kt12ab";
        QTest::newRow("over-long kept") << ""
                                        << "ABCDEFGHIJ"
                                        << "OK"
                                        << "ABCDEFGHIJ";
        QTest::newRow("Cancel") << "KT1234" << QString() << "Cancel"
                                << "-1";
        QTest::newRow("Cancel after typing") << ""
                                             << "AB1234"
                                             << "Cancel"
                                             << "-1";
    }

    void getStringReturnsTheFieldAsTyped()
    {
        QFETCH(QString, defaultValue);
        QFETCH(QString, typed);
        QFETCH(QString, button);
        QFETCH(QString, expected);
        DialogScript script;
        QString shownDefault;
        script.then([&](QWidget *d, const SeenDialog &) {
            auto *field = d->findChild<QLineEdit *>();
            shownDefault = field ? field->text() : QStringLiteral("<no field>");
            if (field && !typed.isNull())
                field->setText(typed);
            clickButton(d, button);
        });
        const QString answer = support.getString(QStringLiteral("Format Drive"), kAskName, defaultValue);
        QCOMPARE(answer, expected);
        QCOMPARE(shownDefault, defaultValue);
        QCOMPARE(script.seen().size(), 1);
        const SeenDialog seen = script.seen().constFirst();
        QCOMPARE(seen.title, QStringLiteral("Format Drive"));
        QCOMPARE(seen.informative, kAskName);
        QCOMPARE(seen.buttons, (QStringList{QStringLiteral("OK"), QStringLiteral("Cancel")}));
    }

    void getStringClosedOtherwiseIsCancel()
    {
        // One script per dialog: the next dialog may take the same address.
        {
            DialogScript script;
            script.then([](QWidget *d, const SeenDialog &) {
                d->findChild<QLineEdit *>()->setText(QStringLiteral("AB1234"));
                QTest::keyClick(d, Qt::Key_Escape);
            });
            QCOMPARE(support.getString(QStringLiteral("Format Drive"), kAskName, QString()),
                     QStringLiteral("-1"));
        }
        {
            DialogScript script;
            script.then([](QWidget *d, const SeenDialog &) { d->close(); });
            QCOMPARE(support.getString(QStringLiteral("Format Drive"), kAskName, QStringLiteral("AB1234")),
                     QStringLiteral("-1"));
            QCOMPARE(script.pending(), 0);
        }
    }

    void optionPromptZeroOnlyForTheFirstButton_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("question");
        QTest::addColumn<QString>("t1");
        QTest::addColumn<QString>("t2");
        QTest::addColumn<QString>("answer"); // a button's text, "Escape" or "close"
        QTest::addColumn<int>("expected");
        const QString done = QStringLiteral("Tape Format Complete");
        const QString ask = QStringLiteral("Mount or Eject tape");
        QTest::newRow("Eject") << done << ask << "Eject"
                               << "Mount"
                               << "Eject" << 0;
        QTest::newRow("Mount") << done << ask << "Eject"
                               << "Mount"
                               << "Mount" << 1;
        QTest::newRow("Escape") << done << ask << "Eject"
                                << "Mount"
                                << "Escape" << 1;
        QTest::newRow("closed") << done << ask << "Eject"
                                << "Mount"
                                << "close" << 1;
        QTest::newRow("empty texts, Proceed") << ""
                                              << ""
                                              << "Proceed"
                                              << "Cancel"
                                              << "Proceed" << 0;
        QTest::newRow("empty texts, Cancel") << ""
                                             << ""
                                             << "Proceed"
                                             << "Cancel"
                                             << "Cancel" << 1;
        // Order follows the arguments, not what the words usually mean.
        QTest::newRow("Cancel given first") << ""
                                            << ""
                                            << "Cancel"
                                            << "OK"
                                            << "Cancel" << 0;
        QTest::newRow("OK given second") << ""
                                         << ""
                                         << "Cancel"
                                         << "OK"
                                         << "OK" << 1;
    }

    void optionPromptZeroOnlyForTheFirstButton()
    {
        QFETCH(QString, title);
        QFETCH(QString, question);
        QFETCH(QString, t1);
        QFETCH(QString, t2);
        QFETCH(QString, answer);
        QFETCH(int, expected);
        DialogScript script;
        script.then([&](QWidget *d, const SeenDialog &) {
            if (answer == QStringLiteral("Escape"))
                QTest::keyClick(d, Qt::Key_Escape);
            else if (answer == QStringLiteral("close"))
                d->close();
            else
                clickButton(d, answer);
        });
        QCOMPARE(support.userOptionPrompt(title, question, t1, t2), expected);
        QCOMPARE(script.seen().size(), 1);
        const SeenDialog seen = script.seen().constFirst();
        QCOMPARE(seen.kind, QStringLiteral("message"));
        QCOMPARE(seen.title, title);
        QCOMPARE(seen.informative, question);
        QCOMPARE(seen.buttons, (QStringList{t1, t2}));
    }

    void pickFileOffersOnlyTheGivenTypes()
    {
        const QString dir = firmwareFolder();
        DialogScript script;
        QStringList nameFilters;
        QStringList offered;
        bool filesOnly = false;
        bool hiddenShown = false;
        bool resizable = false;
        script.then([&](QWidget *d, const SeenDialog &) {
            auto *fd = qobject_cast<QFileDialog *>(d);
            nameFilters = fd->nameFilters();
            filesOnly = fd->fileMode() == QFileDialog::ExistingFile;
            hiddenShown = fd->filter().testFlag(QDir::Hidden);
            resizable = fd->isSizeGripEnabled();
            fd->setDirectory(dir);
            offered = listedOnceLoaded(fd, {QStringLiteral(".hidden.fm"), QStringLiteral("new.fmrz"),
                                            QStringLiteral("old.fm"), QStringLiteral("sub/")});
            enterAndAccept(fd, QStringLiteral("new.fmrz"));
        });
        QCOMPARE(support.pickFile({QStringLiteral("fmrz"), QStringLiteral("fm")}),
                 dir + QStringLiteral("/new.fmrz"));
        QCOMPARE(script.seen().constFirst().title, QStringLiteral("Select File"));
        QCOMPARE(script.seen().constFirst().kind, QStringLiteral("file"));
        QCOMPARE(nameFilters.size(), 1);
        QCOMPARE(nameFilters.constFirst().split(QLatin1Char(' ')),
                 (QStringList{QStringLiteral("*.fmrz"), QStringLiteral("*.fm")}));
        QCOMPARE(offered, (QStringList{QStringLiteral(".hidden.fm"), QStringLiteral("new.fmrz"),
                                       QStringLiteral("old.fm"), QStringLiteral("sub/")}));
        QVERIFY(filesOnly);
        QVERIFY(hiddenShown);
        QVERIFY(resizable);
    }

    void pickFileWithoutTypesOffersEveryFile()
    {
        const QString dir = firmwareFolder();
        const QStringList everything{QStringLiteral(".hidden.fm"), QStringLiteral(".profile"),
                                     QStringLiteral("new.fmrz"),   QStringLiteral("new.fmrz.bak"),
                                     QStringLiteral("notes.txt"),  QStringLiteral("old.fm"),
                                     QStringLiteral("sub/")};
        DialogScript script;
        QStringList offered;
        script.then([&](QWidget *d, const SeenDialog &) {
            auto *fd = qobject_cast<QFileDialog *>(d);
            fd->setDirectory(dir);
            offered = listedOnceLoaded(fd, everything);
            enterAndAccept(fd, QStringLiteral(".profile"));
        });
        QCOMPARE(support.pickFile({}), dir + QStringLiteral("/.profile"));
        QCOMPARE(offered, everything);
    }

    // Regression: a name typed into the picker's field bypassed the type
    // filter, so the firmware update could be handed a text file.
    void pickFileRefusesATypedNameOfAnotherType()
    {
        const QString dir = firmwareFolder();
        DialogScript script;
        bool stayedOpen = false;
        script.then([&](QWidget *d, const SeenDialog &) {
            auto *fd = qobject_cast<QFileDialog *>(d);
            fd->setDirectory(dir);
            fd->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"))->setText(QStringLiteral("notes.txt"));
            QMetaObject::invokeMethod(fd, "accept", Qt::DirectConnection);
            stayedOpen = fd->isVisible() && fd->result() != QDialog::Accepted;
            enterAndAccept(fd, QStringLiteral("old.fm"));
        });
        QCOMPARE(support.pickFile({QStringLiteral("fmrz"), QStringLiteral("fm")}),
                 dir + QStringLiteral("/old.fm"));
        QVERIFY(stayedOpen);
        QVERIFY(script.unexpected().isEmpty());
    }

    void pickersAnswerCancelInBand()
    {
        {
            DialogScript script;
            script.cancelPicker();
            QCOMPARE(support.pickFile({QStringLiteral("fmrz"), QStringLiteral("fm")}), QString());
            QCOMPARE(script.seen().size(), 1);
        }
        {
            DialogScript script;
            script.cancelPicker();
            QCOMPARE(support.pickFolder(), QStringLiteral("-1"));
            QCOMPARE(script.seen().size(), 1);
        }
    }

    void pickFolderChoosesFoldersOnly()
    {
        const QString dir = firmwareFolder();
        DialogScript script;
        QString confirmLabel;
        QFileDialog::FileMode mode = QFileDialog::AnyFile;
        bool dirsOnly = false;
        bool hiddenShown = true;
        bool canCreate = false;
        bool resizable = true;
        QStringList offered;
        script.then([&](QWidget *d, const SeenDialog &) {
            auto *fd = qobject_cast<QFileDialog *>(d);
            confirmLabel = fd->labelText(QFileDialog::Accept);
            mode = fd->fileMode();
            dirsOnly = fd->testOption(QFileDialog::ShowDirsOnly);
            hiddenShown = fd->filter().testFlag(QDir::Hidden);
            auto *newFolder = fd->findChild<QToolButton *>(QStringLiteral("newFolderButton"));
            canCreate = !fd->testOption(QFileDialog::ReadOnly) && newFolder && newFolder->isEnabled();
            resizable = fd->isSizeGripEnabled();
            fd->setDirectory(dir);
            offered = listedOnceLoaded(fd, {QStringLiteral("sub/")});
            enterAndAccept(fd, dir + QStringLiteral("/sub"));
        });
        QCOMPARE(support.pickFolder(), dir + QStringLiteral("/sub"));
        QCOMPARE(script.seen().constFirst().title,
                 QStringLiteral("Where would you like to save the DRIVE DUMP?"));
        QCOMPARE(confirmLabel, QStringLiteral("Save"));
        QCOMPARE(mode, QFileDialog::Directory);
        QVERIFY(dirsOnly);
        QVERIFY(!hiddenShown);
        QVERIFY(canCreate);
        QVERIFY(!resizable);
        QCOMPARE(offered, QStringList{QStringLiteral("sub/")});
    }

    void pickFolderCannotReturnAFile()
    {
        const QString dir = firmwareFolder();
        DialogScript script;
        bool stayedOpen = false;
        script.then([&](QWidget *d, const SeenDialog &) {
            auto *fd = qobject_cast<QFileDialog *>(d);
            fd->setDirectory(dir);
            fd->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"))
                ->setText(dir + QStringLiteral("/new.fmrz"));
            QMetaObject::invokeMethod(fd, "accept", Qt::DirectConnection);
            stayedOpen = fd->isVisible() && fd->result() != QDialog::Accepted;
            QMetaObject::invokeMethod(fd, "reject", Qt::QueuedConnection);
        });
        const QString answer = support.pickFolder();
        QVERIFY(stayedOpen);
        QCOMPARE(answer, QStringLiteral("-1"));
        QVERIFY(script.unexpected().isEmpty());
    }
};

TAPEDESK_TEST_MAIN(DialogsTest)
#include "tst_dialogs.moc"
