// ctest-timeout: 120
// The window as the operator and a screen reader meet it: the first start,
// the drive table's lines, colours and clicks, what is read aloud, the real
// dialogs the workflows ask through, and the account login against a local
// server.

#include "Preferences/PreferencesViewController.h"
#include "Preferences/PreferencesWindowController.h"
#include "app/AppDelegate.h"
#include "app/DarkLook.h"
#include "drives/DriveStateStore.h"
#include "operations/Texts.h"
#include "support/Support.h"
#include "support/TestMain.h"
#include "support/WindowHarness.h"
#include "support/WorkflowFixture.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"
#include "ui/AuthenticateViewController.h"
#include "ui/DriveTableModel.h"
#include "ui/ViewController.h"

#include <QAccessible>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QTableView>
#include <QTcpServer>
#include <QTcpSocket>

using namespace tapedesk;
using namespace tapedesk::test;

namespace {

const QString kTwoDriveScan = QStringLiteral(R"(printf 'Scanning SCSI Bus ...\n'
printf '#0 tape0 - [ULTRIUM-HH8]-[F1A2] S/N:1111111111 H1-B0-T0-L0\n'
printf '#1 tape1 - [ULTRIUM-TD9]-[N1K0] S/N:2222222222 H1-B0-T1-L0\n'
printf 'Exit with code: 0\n')");
const QString kPathsWrong = QStringLiteral("\nLooks like preferences settings could be wrong.");

DrivePtr drive(const QString &id, bool mounted = false)
{
    DriveRecord r;
    r.id = id;
    r.info1 = QStringLiteral("Corvel LTO8 HH");
    r.serialNumber = QStringLiteral("S") + id;
    r.info2 = QStringLiteral("S/N:") + r.serialNumber;
    r.info3 = QStringLiteral("F1A2");
    r.label = mounted ? QStringLiteral("KT1234") : QString();
    r.mounted = mounted;
    return makeDrive(r);
}

QColor cardColour(ViewController &vc, int row)
{
    const QRect r = vc.ui.tableView->visualRect(vc.driveModel()->index(row, 0));
    // A corner of the card, clear of the text.
    return vc.ui.tableView->viewport()->grab().toImage().pixelColor(r.right() - 4, r.top() + 3);
}

QString read(QObject *object, QAccessible::Text text)
{
    QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(object);
    return iface ? iface->text(text) : QStringLiteral("<no interface>");
}

// "$SIM" and "$HOME" stand for the simulator's folder and the test home.
QStringList expand(QStringList texts)
{
    for (QString &t : texts)
        t.replace(QStringLiteral("$SIM"), simBinDir()).replace(QStringLiteral("$HOME"), TestHome::path());
    return texts;
}

// Where the defaults look after PATH: a host with a tape tool there cannot
// show the defaults of a host without one.
bool hostHasTapeTools()
{
    QStringList places{"/usr/local/bin/itdt", "/usr/bin/itdt",         "/usr/local/bin/ltfs",
                       "/usr/bin/ltfs",       "/usr/local/bin/mkltfs", "/usr/bin/mkltfs"};
    for (const QString &vendor : QDir(QStringLiteral("/opt")).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        places << QStringLiteral("/opt/") + vendor + QStringLiteral("/bin/itdt");
    return std::any_of(places.cbegin(), places.cend(), [](const QString &p) { return QFile::exists(p); });
}

// Answers a dialog: a button by its text, "Escape", or "close".
void answer(QWidget *dialog, const QString &how)
{
    if (how == QStringLiteral("Escape"))
        QTest::keyClick(dialog, Qt::Key_Escape);
    else if (how == QStringLiteral("close"))
        dialog->close();
    else
        clickButton(dialog, how);
}

// A folder with firmware images, look-alikes, hidden files and a subfolder.
QString firmwareFolder()
{
    const QString dir = makeDir(QStringLiteral("firmware"));
    for (const char *name : {"new.fmrz", "old.fm", "notes.txt", ".hidden.fm", ".profile", "new.fmrz.bak"}) {
        QFile f(dir + QLatin1Char('/') + QLatin1String(name));
        if (f.open(QIODevice::WriteOnly))
            f.write("x");
    }
    QDir().mkpath(dir + QStringLiteral("/sub"));
    return dir;
}

// What the dialog lists in its folder (folders with a "/"), once its listing
// has loaded into `expected` or five seconds have passed.
QStringList listedOnceLoaded(QFileDialog *fd, const QStringList &expected)
{
    const auto listed = [fd] {
        auto *model = fd->findChild<QFileSystemModel *>();
        const QModelIndex root = model->index(fd->directory().absolutePath());
        QStringList names;
        for (int r = 0; r < model->rowCount(root); ++r) {
            const QModelIndex i = model->index(r, 0, root);
            names << model->fileName(i) + (model->isDir(i) ? QStringLiteral("/") : QString());
        }
        names.sort();
        return names;
    };
    waitUntil([&] { return listed() == expected; }, 5000);
    return listed();
}

// Types into the name field as the operator does, then accepts. `direct`:
// accepts at once, so the caller sees whether the dialog refused.
bool enterAndAccept(QFileDialog *fd, const QString &name, bool direct = false)
{
    fd->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"))->setText(name);
    QMetaObject::invokeMethod(fd, "accept", direct ? Qt::DirectConnection : Qt::QueuedConnection);
    return fd->isVisible() && fd->result() != QDialog::Accepted;
}

// A minimal HTTP/1.1 server on 127.0.0.1 that records each request (headers
// in the order sent) and answers it with the next queued answer.
class TokenServer : public QObject
{
public:
    struct Request
    {
        QByteArray path;
        QList<QByteArray> headerNames;
        QHash<QByteArray, QByteArray> headers;
        QByteArray body;
    };
    QList<QPair<int, QByteArray>> answers;
    QList<Request> requests;

    TokenServer()
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *s = m_server.nextPendingConnection())
                connect(s, &QTcpSocket::readyRead, this, [this, s] { read(s); });
        });
    }
    QString base() const { return QStringLiteral("http://127.0.0.1:%1/").arg(m_server.serverPort()); }

private:
    void read(QTcpSocket *s)
    {
        QByteArray &buf = m_buffers[s];
        buf += s->readAll();
        const qsizetype end = buf.indexOf("\r\n\r\n");
        Request r;
        const QList<QByteArray> lines = buf.left(end).split('\n');
        r.path = lines.value(0).split(' ').value(1);
        for (const QByteArray &line : lines.mid(1)) {
            const QByteArray name = line.left(line.indexOf(':')).toLower();
            r.headerNames << name;
            r.headers.insert(name, line.mid(line.indexOf(':') + 1).trimmed());
        }
        if (end < 0 || buf.size() < end + 4 + r.headers.value("content-length").toLongLong())
            return;
        r.body = buf.mid(end + 4);
        buf.clear();
        requests << r;
        const auto [status, body] =
            answers.isEmpty() ? qMakePair(200, QByteArray("{}")) : answers.takeFirst();
        s->write("HTTP/1.1 " + QByteArray::number(status) + " X\r\nContent-Type: application/json\r\n" +
                 "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body);
    }

    QTcpServer m_server;
    QHash<QTcpSocket *, QByteArray> m_buffers;
};

bool loginSettled(const TokenServer &server, const AuthenticateViewController &login, int requests)
{
    return waitUntil([&] { return server.requests.size() >= requests && login.requestsInFlight() == 0; });
}

} // namespace

class UiTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        applyDarkLook(*qobject_cast<QApplication *>(QCoreApplication::instance()));
        qputenv(AuthSettings::userEnv, "operator@site.example");
        qputenv(AuthSettings::passwordEnv, "p@ss:word/1");
        m_path = qgetenv("PATH");
    }
    void init() { clearStore(); }
    void cleanup()
    {
        endWorkflowCase();
        qputenv("PATH", m_path);
    }

    void startUp_data()
    {
        // The pane once start-up is over; the fields the preferences window
        // opens with (none: it stays closed); the pane's last line after Save.
        QTest::addColumn<bool>("toolsOnPath");
        QTest::addColumn<bool>("documentsFolder");
        QTest::addColumn<QStringList>("stored");
        QTest::addColumn<QString>("launch");
        QTest::addColumn<QString>("startPane");
        QTest::addColumn<QStringList>("offered");
        QTest::addColumn<QString>("afterSave");
        const QStringList onSim{"$SIM/itdt", "$SIM/ltfs", "$SIM/mkltfs"};
        const QString documents = QStringLiteral("$HOME/Documents/corvel-lto-output");
        QTest::newRow("first start, tools on PATH: Save, then a scan")
            << true << true << QStringList() << "" << kPathsWrong << onSim + QStringList{documents}
            << "Scan Complete";
        QTest::newRow("no documents folder: output in the home folder")
            << true << false << QStringList() << "" << kPathsWrong
            << onSim + QStringList{"$HOME/corvel-lto-output"} << "Scan Complete";
        QTest::newRow("after -c: a first start again, the output folder not offered")
            << true << true << onSim + QStringList{"$HOME/old-output"} << "-c" << kPathsWrong
            << onSim + QStringList{documents} << "Scan Complete";
        QTest::newRow("nothing installed: the install folder names what is missing")
            << false << true << QStringList() << "" << kPathsWrong
            << QStringList{"/usr/local/bin/itdt", "/usr/local/bin/ltfs", "/usr/local/bin/mkltfs", documents}
            << "mkltfs not found at /usr/local/bin/mkltfs";
        QTest::newRow("stored but wrong: the path is named, nothing opens")
            << true << true << QStringList{"/opt/x/itdt", "$SIM/ltfs", "$SIM/mkltfs", "$HOME/out"} << ""
            << kPathsWrong + QStringLiteral("\nitdt not found at /opt/x/itdt") << QStringList() << "";
    }

    void startUp()
    {
        QFETCH(bool, toolsOnPath);
        QFETCH(bool, documentsFolder);
        QFETCH(QStringList, stored);
        QFETCH(QString, launch);
        QFETCH(QString, startPane);
        QFETCH(QStringList, offered);
        QFETCH(QString, afterSave);
        if (!toolsOnPath && hostHasTapeTools())
            QSKIP("this host has a tape tool installed");
        resetSimulator();
        for (const char *folder : {"/Documents", "/corvel-lto-output"})
            QDir(TestHome::path() + QLatin1String(folder)).removeRecursively();
        if (documentsFolder)
            makeDir(QStringLiteral("Documents"));
        qputenv("PATH",
                (toolsOnPath ? QFile::encodeName(simBinDir()) + ':' : QByteArray()) + "/usr/bin:/bin");
        stored = expand(stored);
        if (!stored.isEmpty())
            setPaths(stored[0], stored[1], stored[2], stored[3]);

        ViewController vc;
        AppDelegate delegate;
        delegate.attachMainWindow(vc);
        vc.viewDidLoad({QStringLiteral("tapedesk"), launch});
        vc.show();
        QVERIFY(waitForPane(vc, startPane.section(QLatin1Char('\n'), -1)));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(paneText(vc), startPane);
        QCOMPARE(delegate.preferencesController != nullptr, !offered.isEmpty());
        if (offered.isEmpty())
            return;
        PreferencesViewController &pane = *delegate.preferencesController->pathsPane();
        QCOMPARE((QStringList{pane.txtITDT->text(), pane.txtLTFS->text(), pane.txtMK->text(),
                              pane.txtOutput->text()}),
                 expand(offered));
        pane.ui.btnSave->click();
        QVERIFY(waitForPane(vc, afterSave));
        QVERIFY(waitForIdle(vc));
        QVERIFY(paneText(vc).endsWith(afterSave));
        QVERIFY(QFileInfo(pane.txtOutput->text()).isDir()); // the default folder is made on Save
        QCOMPARE(vc.driveModel()->rowCount(), afterSave == QStringLiteral("Scan Complete") ? 5 : 0);
    }

    void scanSelectAndClear()
    {
        const QString bin = makeDir(QStringLiteral("fakebin"));
        setPaths(writeScript(bin, QStringLiteral("itdt"),
                             QStringLiteral("echo run >> \"$HOME/scans\"\n") + kTwoDriveScan),
                 writeScript(bin, QStringLiteral("ltfs"), {}), writeScript(bin, QStringLiteral("mkltfs"), {}),
                 makeDir(QStringLiteral("out")));
        QFile::remove(TestHome::path() + QStringLiteral("/scans"));
        DriveStateStore::saveDriveInfo(*drive(QStringLiteral("tape9")));
        ViewController vc;
        vc.viewDidLoad({QStringLiteral("tapedesk")});
        vc.show();
        QVERIFY(waitForPane(vc, QStringLiteral("Scan Complete")) && waitForIdle(vc));
        vc.ui.rightScrollView->clear();
        QVERIFY(scanToEnd(vc));
        QCOMPARE(readFile(TestHome::path() + QStringLiteral("/scans")), QByteArray("run\nrun\n"));
        QCOMPARE(paneText(vc),
                 QStringLiteral("\nRunning Scan - Please Wait....\n.....Scan Executed\nScan Complete"));
        QCOMPARE(statusOf(vc.ui.btnScan), QStringLiteral("Complete Button"));
        // The scanned drives, then the remembered mounted one.
        QCOMPARE(vc.driveModel()->rowCount(), 3);
        QCOMPARE(vc.driveModel()->index(1, 0).data(DriveTableModel::MountedRole).toBool(), false);
        QCOMPARE(vc.driveModel()->index(2, 0).data(DriveTableModel::MountedRole).toBool(), true);

        vc.ui.rightScrollView->clear();
        vc.ui.tableView->selectRow(1);
        QVERIFY(waitForPane(vc, QStringLiteral("tape1 Selected")));
        QCOMPARE(paneText(vc), QStringLiteral("\nReady \ntape1 Selected"));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
        vc.ui.tableView->selectRow(2);
        QVERIFY(waitForPane(vc, QStringLiteral("tape9 Selected")));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));
        vc.ui.tableView->clearSelection(); // empty space: the drive stays chosen
        QCOMPARE(vc.engine.selectedDrive.get()->id(), QStringLiteral("tape9"));

        vc.ui.btnClearPreferences->click();
        QVERIFY(waitForPane(vc, QStringLiteral("Mounted drives reset")));
        QVERIFY(!SettingsStore::contains(DriveStateStore::kMountedDrivesKey));
        QVERIFY(!SettingsStore::contains(QStringLiteral("Stape9_id")));
        QVERIFY(SettingsStore::contains(PreferenceKeys::itdt));
        QVERIFY(scanToEnd(vc));
        QCOMPARE(vc.driveModel()->rowCount(), 2);

        // A scan that cannot start keeps the rows it had.
        ITDT_PATH.set(TestHome::path() + QStringLiteral("/no-such-itdt"));
        vc.ui.rightScrollView->clear();
        vc.btnScan();
        QVERIFY(
            waitForPane(vc, QStringLiteral("Scan Failed - make sure your preferences are set correctly")));
        QVERIFY(waitForIdle(vc));
        QCOMPARE(vc.driveModel()->rowCount(), 2);
        QCOMPARE(statusOf(vc.ui.btnScan), QStringLiteral("In Process Button"));
    }

    // Ten thousand drives: five lines a row, read the same by a screen
    // reader, painted yellow when mounted, grey otherwise, with no widget per row.
    void driveTableReadsAndPaints()
    {
        ViewController vc;
        QVERIFY(showSettled(vc));
        QList<DrivePtr> many;
        for (int i = 0; i < 10000; ++i)
            many << drive(QStringLiteral("tape%1").arg(i), i % 7 == 0);
        many[2] = drive(QStringLiteral("/dev/IBMtape2"));
        many[2]->update([](DriveRecord &r) { r.info3.clear(); });
        vc.driveModel()->reload(many);
        const QList<QStringList> expected{
            {"Drive1 (tape0)", "Corvel LTO8 HH", "FW: F1A2", "S/N:Stape0", "TAPE: KT1234"},
            {"Drive2 (tape1)", "Corvel LTO8 HH", "FW: F1A2", "S/N:Stape1", "TAPE: "},
            {"Drive3 (/dev/IBMtape2)", "Corvel LTO8 HH", "FW: ", "S/N:S/dev/IBMtape2", "TAPE: "}};
        QAccessibleInterface *table = QAccessible::queryAccessibleInterface(vc.ui.tableView);
        for (int row = 0; row < 3; ++row) {
            QCOMPARE(vc.driveModel()->index(row, 0).data(DriveTableModel::LinesRole).toStringList(),
                     expected[row]);
            QCOMPARE(table->tableInterface()->cellAt(row, 0)->text(QAccessible::Name),
                     expected[row].join('\n'));
        }
        // Once the scroll bar has made room for itself.
        QTRY_COMPARE(cardColour(vc, 0), QColor(Qt::yellow));
        QCOMPARE(cardColour(vc, 1), QColor(Qt::lightGray));
        // Dark text on the light card, readable in the dark window.
        const QImage img = vc.ui.tableView->viewport()->grab().toImage();
        const QRect card = vc.ui.tableView->visualRect(vc.driveModel()->index(1, 0));
        int dark = 0;
        for (int y = card.top(); y <= card.bottom(); ++y) {
            for (int x = card.left(); x <= card.right(); ++x)
                dark += qGray(img.pixel(x, y)) < 96 ? 1 : 0;
        }
        QVERIFY2(dark > 50, qPrintable(QString::number(dark)));

        vc.ui.tableView->scrollToBottom();
        QCoreApplication::processEvents();
        QVERIFY(vc.ui.tableView->viewport()->findChildren<QWidget *>().size() < 5);
        QCOMPARE(cardColour(vc, 9996), QColor(Qt::yellow)); // 9996 % 7 == 0
        QCOMPARE(cardColour(vc, 9999), QColor(Qt::lightGray));
        vc.ui.tableView->selectRow(9999);
        QVERIFY(waitForPane(vc, QStringLiteral("tape9999 Selected")));
    }

    void clicksOnRowsAndOnEmptySpace()
    {
        ViewController vc;
        QVERIFY(showSettled(vc));
        vc.driveModel()->reload({drive(QStringLiteral("tape0")), drive(QStringLiteral("tape1"), true)});
        QWidget *viewport = vc.ui.tableView->viewport();
        const auto clickRow = [&](int row) {
            QTest::mouseClick(viewport, Qt::LeftButton, {},
                              vc.ui.tableView->visualRect(vc.driveModel()->index(row, 0)).center());
        };
        clickRow(1);
        QVERIFY(waitForPane(vc, QStringLiteral("tape1 Selected")));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("UNMOUNT"));
        QTest::mouseClick(viewport, Qt::LeftButton, {}, QPoint(20, viewport->height() - 5));
        QTest::qWait(50);
        QCOMPARE(paneText(vc), QStringLiteral("\nReady \ntape1 Selected"));
        QCOMPARE(vc.engine.selectedDrive.get()->id(), QStringLiteral("tape1"));
        clickRow(0);
        QVERIFY(waitForPane(vc, QStringLiteral("tape0 Selected")));
        QCOMPARE(vc.ui.lblMount->text(), QStringLiteral("MOUNT"));
    }

    void everyControlIsNamedAndTheWindowIsFixed()
    {
        ViewController vc;
        vc.show();
        QVERIFY(waitForIdle(vc));
        const QList<std::tuple<QWidget *, QString, QAccessible::Role>> controls{
            {vc.ui.btnScan, "Scan", QAccessible::Button},
            {vc.ui.btnMount, "Mount", QAccessible::Button},
            {vc.ui.btnRetriveLog, "Retrieve Log", QAccessible::Button},
            {vc.ui.btnTest, "Test", QAccessible::Button},
            {vc.ui.btnUpgrade, "Upgrade", QAccessible::Button},
            {vc.ui.btnHostValidation, "Host Validation", QAccessible::Button},
            {vc.ui.btnFormat, "Format", QAccessible::Button},
            {vc.ui.btnClearPreferences, "Clear Mounted Drives", QAccessible::Button},
            {vc.ui.tableView, "Drives", QAccessible::Table},
            {vc.ui.rightScrollView, "Output", QAccessible::EditableText},
            {vc.ui.lblMount, "MOUNT", QAccessible::StaticText},
            {vc.ui.progressIndicator, "Progress", QAccessible::ProgressBar}};
        const QList<QWidget *> all = vc.findChildren<QWidget *>();
        for (const auto &[widget, name, role] : controls) {
            QCOMPARE(read(widget, QAccessible::Name), name);
            QCOMPARE(QAccessible::queryAccessibleInterface(widget)->role(), role);
            // Automation finds it by its name alone.
            QCOMPARE(std::count_if(all.cbegin(), all.cend(),
                                   [&](QWidget *w) { return w->accessibleName() == name; }),
                     1);
        }
        QVERIFY(vc.windowFlags().testFlag(Qt::CustomizeWindowHint));
        for (Qt::WindowType hint : {Qt::WindowCloseButtonHint, Qt::WindowMinimizeButtonHint,
                                    Qt::WindowMaximizeButtonHint, Qt::WindowFullscreenButtonHint})
            QVERIFY(!vc.windowFlags().testFlag(hint));
        QCOMPARE(vc.windowTitle(), QStringLiteral("TapeDesk"));
        const QSize before = vc.size();
        vc.resize(before + QSize(300, 200));
        QCoreApplication::processEvents();
        QCOMPARE(vc.size(), before);
    }

    void whatIsReadAloud_data()
    {
        QTest::addColumn<QByteArray>("fault"); // for the Test run; none: a mounted drive chosen, then another
        QTest::addColumn<QStringList>("expected");
        const QString alert =
            QStringList{ALERT_WARNING, ALERT_WARNING, ALERT_DESTRUCTIVE_RUN_TEST}.join(" | ");
        QTest::newRow("test passes") << QByteArray("") << QStringList{alert, "In Progress", "Complete"};
        QTest::newRow("test fails") << QByteArray("tape0:load=4")
                                    << QStringList{alert, "In Progress", "Failed"};
        QTest::newRow("caption follows the drive") << QByteArray() << QStringList{"UNMOUNT", "MOUNT"};
    }

    void whatIsReadAloud()
    {
        QFETCH(QByteArray, fault);
        QFETCH(QStringList, expected);
        freshWorkflowCase();
        qputenv("TAPESIM_FAIL", fault);
        ViewController vc;
        QStringList heard;
        // The description at each status a run gives the button (the property
        // is set once the image and its words are in place).
        struct Reader : QObject
        {
            QStringList *heard = nullptr;
            bool eventFilter(QObject *watched, QEvent *event) override
            {
                if (event->type() == QEvent::DynamicPropertyChange)
                    *heard << read(watched, QAccessible::Description);
                return false;
            }
        } reader;
        reader.heard = &heard;
        vc.ui.btnTest->installEventFilter(&reader);
        if (!fault.isNull()) {
            selectDrive(vc);
            DialogScript script;
            script.then([&](QWidget *d, const SeenDialog &) {
                heard << QStringList{d->windowTitle(), read(d, QAccessible::Name),
                                     read(d, QAccessible::Description)}
                             .join(QStringLiteral(" | "));
                clickButton(d, QStringLiteral("OK"));
            });
            vc.btnRunTest();
            waitUntil([&] { return heard.size() >= expected.size(); }); // a miss shows below
        } else {
            for (const auto &[id, mounted] : {std::pair{"tape1", true}, {"tape0", false}}) {
                vc.engine.selectDrive(drive(QString::fromLatin1(id), mounted));
                QVERIFY(waitForPane(vc, QString::fromLatin1(id) + QStringLiteral(" Selected")));
                heard << read(vc.ui.lblMount, QAccessible::Name);
            }
        }
        QVERIFY(waitForIdle(vc));
        QCOMPARE(heard, expected);
    }

    void getString_data()
    {
        QTest::addColumn<QString>("defaultValue");
        QTest::addColumn<QString>("typed"); // null: the field left alone
        QTest::addColumn<QString>("how");
        QTest::addColumn<QString>("expected");
        QTest::newRow("default kept") << "KT1234" << QString() << "OK"
                                      << "KT1234";
        QTest::newRow("typed text as it stands") << ""
                                                 << " kt12ab and more "
                                                 << "OK"
                                                 << " kt12ab and more ";
        QTest::newRow("typed -1") << ""
                                  << "-1"
                                  << "OK"
                                  << "-1";
        QTest::newRow("Cancel after typing") << ""
                                             << "AB1234"
                                             << "Cancel"
                                             << "-1";
        QTest::newRow("Escape") << "KT1234"
                                << "AB1234"
                                << "Escape"
                                << "-1";
        QTest::newRow("closed") << "AB1234" << QString() << "close"
                                << "-1";
    }

    void getString()
    {
        QFETCH(QString, defaultValue);
        QFETCH(QString, typed);
        QFETCH(QString, how);
        QFETCH(QString, expected);
        const QString question = QStringLiteral("Assign tape name (6 character alphanumeric: EG: KT1234)");
        DialogScript script;
        QString shown;
        script.then([&](QWidget *d, const SeenDialog &) {
            auto *field = d->findChild<QLineEdit *>();
            shown = field->text();
            if (!typed.isNull())
                field->setText(typed);
            answer(d, how);
        });
        QCOMPARE(Support().getString(QStringLiteral("Format Drive"), question, defaultValue), expected);
        QCOMPARE(shown, defaultValue);
        QCOMPARE(script.seen().size(), 1);
        QCOMPARE(script.seen()[0].title, QStringLiteral("Format Drive"));
        QCOMPARE(script.seen()[0].informative, question);
        QCOMPARE(script.seen()[0].buttons, (QStringList{"OK", "Cancel"}));
    }

    void optionPrompt_data()
    {
        QTest::addColumn<QString>("t1");
        QTest::addColumn<QString>("t2");
        QTest::addColumn<QString>("how");
        QTest::addColumn<int>("expected");
        QTest::newRow("first") << "Eject"
                               << "Mount"
                               << "Eject" << 0;
        QTest::newRow("second") << "Eject"
                                << "Mount"
                                << "Mount" << 1;
        QTest::newRow("Escape") << "Eject"
                                << "Mount"
                                << "Escape" << 1;
        QTest::newRow("closed") << "Eject"
                                << "Mount"
                                << "close" << 1;
        // The order follows the arguments, not what the words usually mean.
        QTest::newRow("Cancel given first") << "Cancel"
                                            << "OK"
                                            << "Cancel" << 0;
    }

    void optionPrompt()
    {
        QFETCH(QString, t1);
        QFETCH(QString, t2);
        QFETCH(QString, how);
        QFETCH(int, expected);
        DialogScript script;
        script.then([&](QWidget *d, const SeenDialog &) { answer(d, how); });
        QCOMPARE(Support().userOptionPrompt(QStringLiteral("Tape Format Complete"),
                                            QStringLiteral("Mount or Eject"), t1, t2),
                 expected);
        QCOMPARE(script.seen()[0].kind, QStringLiteral("message"));
        QCOMPARE(script.seen()[0].title, QStringLiteral("Tape Format Complete"));
        QCOMPARE(script.seen()[0].informative, QStringLiteral("Mount or Eject"));
        QCOMPARE(script.seen()[0].buttons, (QStringList{t1, t2}));
    }

    void pickFile_data()
    {
        QTest::addColumn<QStringList>("types");
        QTest::addColumn<QStringList>("offered");
        QTest::addColumn<QString>("chosen");
        // Regression: a name typed into the field bypassed the type filter, so
        // the firmware update could be handed a text file.
        QTest::newRow("firmware types")
            << QStringList{"fmrz", "fm"} << QStringList{".hidden.fm", "new.fmrz", "old.fm", "sub/"}
            << "old.fm";
        QTest::newRow("any type") << QStringList()
                                  << QStringList{".hidden.fm", ".profile", "new.fmrz", "new.fmrz.bak",
                                                 "notes.txt",  "old.fm",   "sub/"}
                                  << "notes.txt";
    }

    void pickFile()
    {
        QFETCH(QStringList, types);
        QFETCH(QStringList, offered);
        QFETCH(QString, chosen);
        const QString dir = firmwareFolder();
        DialogScript script;
        QStringList listed;
        bool refusedOtherType = false;
        script.then([&](QWidget *d, const SeenDialog &) {
            auto *fd = qobject_cast<QFileDialog *>(d);
            fd->setDirectory(dir);
            listed = listedOnceLoaded(fd, offered);
            refusedOtherType = enterAndAccept(fd, QStringLiteral("notes.txt"), true);
            if (refusedOtherType)
                enterAndAccept(fd, chosen);
        });
        QCOMPARE(Support().pickFile(types), dir + QLatin1Char('/') + chosen);
        QCOMPARE(script.seen()[0].title, QStringLiteral("Select File"));
        QCOMPARE(listed, offered);
        QCOMPARE(refusedOtherType, !types.isEmpty());
        script.cancelPicker();
        QCOMPARE(Support().pickFile(types), QString());
    }

    void pickFolderChoosesFoldersOnly()
    {
        const QString dir = firmwareFolder();
        DialogScript script;
        QString confirm;
        QStringList listed;
        bool refusedAFile = false;
        script.then([&](QWidget *d, const SeenDialog &) {
            auto *fd = qobject_cast<QFileDialog *>(d);
            confirm = fd->labelText(QFileDialog::Accept);
            fd->setDirectory(dir);
            listed = listedOnceLoaded(fd, {QStringLiteral("sub/")});
            refusedAFile = enterAndAccept(fd, dir + QStringLiteral("/new.fmrz"), true);
            enterAndAccept(fd, dir + QStringLiteral("/sub"));
        });
        QCOMPARE(Support().pickFolder(), dir + QStringLiteral("/sub"));
        QCOMPARE(script.seen()[0].title, QStringLiteral("Where would you like to save the DRIVE DUMP?"));
        QCOMPARE(confirm, QStringLiteral("Save"));
        QCOMPARE(listed, QStringList{"sub/"});
        QVERIFY(refusedAFile);
        script.cancelPicker();
        QCOMPARE(Support().pickFolder(), QStringLiteral("-1"));
    }

    void loginBuiltInValuesAndTheirOverrides()
    {
        {
            // The built-in tenant ends in "/", so the endpoint holds two slashes.
            qunsetenv(AuthSettings::passwordEnv);
            AuthenticateViewController login;
            QVERIFY(login.domain.startsWith(QStringLiteral("https://")));
            QCOMPARE(login.audience, login.domain + QStringLiteral("api/v2/"));
            QVERIFY(login.tokenEndpoint().endsWith(QStringLiteral("//oauth/token")));
            QCOMPARE(login.password, AuthSettings::defaultPassword);
        }
        // Settings replace the built-in values; the environment wins over both.
        SettingsStore::setText(AuthSettings::domainKey, QStringLiteral("https://tenant.site.example"));
        SettingsStore::setText(AuthSettings::passwordKey, QStringLiteral("from-settings"));
        qputenv(AuthSettings::passwordEnv, "p@ss:word/1");
        AuthenticateViewController login;
        QCOMPARE(login.audience, QStringLiteral("https://tenant.site.example/api/v2/"));
        QCOMPARE(login.userName, QStringLiteral("operator@site.example"));
        QCOMPARE(login.password, QStringLiteral("p@ss:word/1"));
        SettingsStore::removeKeys({AuthSettings::domainKey, AuthSettings::passwordKey});
    }

    void loginSendsTwoGrantsWithTheFirstToken()
    {
        TokenServer server;
        server.answers << qMakePair(200, QByteArray(R"({"access_token":"tok-123","token_type":"Bearer"})"))
                       << qMakePair(200, QByteArray(R"({"access_token":"user-token"})"))
                       << qMakePair(200, QByteArray(R"({"access_token":"second"})"));
        qputenv(AuthSettings::domainEnv, server.base().toUtf8());
        AuthenticateViewController login;
        const QList<QByteArray> console = consoleOf([&] { login.loginButton()->click(); });
        QVERIFY(loginSettled(server, login, 2));
        const QByteArray endpoint = (server.base() + QStringLiteral("/oauth/token")).toUtf8();
        const QByteArray firstBody =
            "client_id=" + login.client_id.toUtf8() + "&client_secret=" + login.secret.toUtf8() +
            "&audience=" + server.base().toUtf8() + "api/v2/&grant_type=client_credentials";
        QCOMPARE(console.mid(0, 5),
                 (QList<QByteArray>{"___________", firstBody, endpoint, "___________", endpoint}));

        // The URL keeps its two slashes; Qt's HTTP client sends the path normalised.
        const TokenServer::Request &first = server.requests[0];
        QCOMPARE(first.path, QByteArray("/oauth/token"));
        QCOMPARE(first.body, firstBody); // ":" and "/" unencoded
        QCOMPARE(first.headers.value("content-type"), QByteArray("application/x-www-form-urlencoded"));
        QCOMPARE(first.headers.value("accept"), QByteArray("application/json"));
        QVERIFY(!first.headers.contains("authorization"));
        const TokenServer::Request &second = server.requests[1];
        QCOMPARE(second.body, "client_id=" + login.client_id.toUtf8() +
                                  "&grant_type=password&username=operator@site.example&password=p@ss:word/1");
        QCOMPARE(second.headers.value("authorization"), QByteArray("Bearer tok-123"));
        QVERIFY(second.headerNames.indexOf("content-type") < second.headerNames.indexOf("accept"));
        QVERIFY(second.headerNames.indexOf("accept") < second.headerNames.indexOf("authorization"));
        QCOMPARE(login.accessToken, QStringLiteral("tok-123")); // the second answer is not used

        // A later login carries the earlier token.
        login.btnLogin();
        QVERIFY(loginSettled(server, login, 4));
        QCOMPARE(server.requests[2].headers.value("authorization"), QByteArray("Bearer tok-123"));
        QCOMPARE(server.requests[3].headers.value("authorization"), QByteArray("Bearer second"));
    }

    void loginStopsWithoutAUsableToken_data()
    {
        QTest::addColumn<int>("status"); // 0: nobody listens
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QByteArray>("console"); // a line that starts so, or nothing
        QTest::newRow("json array") << 200 << QByteArray(R"([{"access_token":"tok"}])") << QByteArray();
        QTest::newRow("not json") << 200 << QByteArray("<html>Service Unavailable</html>")
                                  << QByteArray("Failed to load: ");
        QTest::newRow("no access_token")
            << 200 << QByteArray(R"({"error":"access_denied"})") << QByteArray("No access_token");
        QTest::newRow("token not text") << 200 << QByteArray(R"({"access_token":42})") << QByteArray();
        QTest::newRow("refused") << 401 << QByteArray(R"({"error":"unauthorized"})") << QByteArray();
        QTest::newRow("not UTF-8") << 200 << QByteArray("{\"access_token\":\"t\xff\"}")
                                   << QByteArray("*unknown encoding*");
        QTest::newRow("nobody listening") << 0 << QByteArray() << QByteArray("Failed to load: ");
    }

    void loginStopsWithoutAUsableToken()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, answer);
        QFETCH(QByteArray, console);
        TokenServer server;
        server.answers << qMakePair(status, answer);
        QString base = server.base();
        if (status == 0) {
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
            base = QStringLiteral("http://127.0.0.1:%1/").arg(probe.serverPort());
        }
        qputenv(AuthSettings::domainEnv, base.toUtf8());
        AuthenticateViewController login;
        const QList<QByteArray> printed = consoleOf([&] {
            login.btnLogin();
            QVERIFY(waitUntil([&] { return login.requestsInFlight() == 0; }));
        });
        QCOMPARE(server.requests.size(), status == 0 ? 0 : 1);
        QVERIFY(login.accessToken.isEmpty());
        QVERIFY(console.isEmpty() || std::any_of(printed.cbegin(), printed.cend(),
                                                 [&](const QByteArray &l) { return l.contains(console); }));
    }

    void anInvalidUrlSendsNothing()
    {
        TokenServer server;
        qputenv(AuthSettings::domainEnv, server.base().toUtf8());
        AuthenticateViewController login;
        bool called = false;
        for (const QString &url :
             {server.base() + QStringLiteral("bad path//oauth/token"),
              QStringLiteral("http://127.0.0.1:99999//oauth/token"), QStringLiteral("not a url")})
            login.makeHttpRequest(url, QStringLiteral("a=b"), [&](const QString &) { called = true; });
        QCOMPARE(login.requestsInFlight(), 0);
        // A tenant that cannot be parsed: the login button sends nothing either.
        qputenv(AuthSettings::domainEnv, (server.base() + QStringLiteral("bad base/")).toUtf8());
        AuthenticateViewController broken;
        broken.btnLogin();
        QCOMPARE(broken.requestsInFlight(), 0);
        // Anything that was sent has arrived before this probe.
        login.makeHttpRequest(server.base() + QStringLiteral("probe"), QStringLiteral("x=1"),
                              [](const QString &) {});
        QVERIFY(loginSettled(server, login, 1));
        QCOMPARE(server.requests.size(), 1);
        QCOMPARE(server.requests[0].path, QByteArray("/probe"));
        QVERIFY(!called);
    }

private:
    QByteArray m_path;
};

TAPEDESK_TEST_MAIN(UiTest)
#include "tst_ui.moc"
