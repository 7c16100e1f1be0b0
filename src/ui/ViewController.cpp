#include "ui/ViewController.h"

#include "tools/Console.h"
#include "tools/HandOff.h"
#include "tools/ProcessRunner.h"
#include "tools/SettingsStore.h"
#include "tools/Shell.h"
#include "tools/ToolPaths.h"
#include "ui/DriveCell.h"
#include "ui/DriveTableModel.h"

#include <QApplication>
#include <QEventLoop>
#include <QFontDatabase>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QShowEvent>
#include <QSignalBlocker>
#include <QSplitter>
#include <QTableView>
#include <QThreadPool>
#include <QTimer>
#include <QVBoxLayout>
#include <thread>

namespace tapedesk {

ViewController::ViewController(QWidget *parent) : QMainWindow(parent)
{
    setObjectName(QStringLiteral("ViewController"));
    timer = new QTimer(this); // a plain timer that is never scheduled until an unmount replaces it
    buildLayout();
    connectActions();
    setOutputView(ui.rightScrollView);
    SettingsStore::setProblemListener([this](const QString &problem) { showResults(false, problem); });
}

ViewController::~ViewController()
{
    SettingsStore::setProblemListener({});
    // Background parts post back to this window; let them finish first. A
    // hung tool would keep them forever, so its process goes first.
    children::killAll();
    waitForBackground();
}

void ViewController::buildLayout()
{
    auto *central = new QWidget(this);
    central->setObjectName(QStringLiteral("mainView"));
    auto *outer = new QHBoxLayout(central);
    outer->setContentsMargins(12, 12, 12, 12);
    outer->setSpacing(12);

    // Left: the drives.
    ui.tableView = new QTableView(central);
    ui.tableView->setObjectName(QStringLiteral("tableView"));
    ui.tableView->setAccessibleName(QStringLiteral("Drives"));
    m_model = new DriveTableModel(this);
    ui.tableView->setModel(m_model);
    ui.tableView->setItemDelegate(new DriveCell(ui.tableView));
    ui.tableView->horizontalHeader()->hide();
    ui.tableView->horizontalHeader()->setStretchLastSection(true);
    ui.tableView->verticalHeader()->hide();
    ui.tableView->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    ui.tableView->verticalHeader()->setDefaultSectionSize(DriveCell::rowHeight(ui.tableView->font()));
    ui.tableView->setSelectionBehavior(QAbstractItemView::SelectRows);
    ui.tableView->setSelectionMode(QAbstractItemView::SingleSelection);
    ui.tableView->setShowGrid(false);
    ui.tableView->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    ui.tableView->setFixedWidth(280);
    outer->addWidget(ui.tableView);

    // Right: actions over the output pane.
    auto *right = new QVBoxLayout;
    right->setSpacing(10);
    auto makeButton = [&](const QString &text, const char *objectName) {
        auto *b = new QPushButton(text, central);
        b->setObjectName(QString::fromLatin1(objectName));
        b->setAccessibleName(text);
        b->setIconSize(QSize(18, 18));
        b->setMinimumHeight(34);
        b->setMinimumWidth(b->sizeHint().width() + 24); // room for the status image
        return b;
    };
    ui.btnScan = makeButton(QStringLiteral("Scan"), "btnScan");
    ui.btnMount = makeButton(QStringLiteral("Mount"), "btnMount");
    ui.btnFormat = makeButton(QStringLiteral("Format"), "btnFormat");
    ui.btnTest = makeButton(QStringLiteral("Test"), "btnTest");
    ui.btnHostValidation = makeButton(QStringLiteral("Host Validation"), "btnHostValidation");
    ui.btnRetriveLog = makeButton(QStringLiteral("Retrieve Log"), "btnRetriveLog");
    ui.btnUpgrade = makeButton(QStringLiteral("Upgrade"), "btnUpgrade");
    ui.btnClearPreferences = makeButton(QStringLiteral("Clear Mounted Drives"), "btnClearPreferences");

    ui.lblMount = new QLabel(QStringLiteral("MOUNT"), central);
    ui.lblMount->setObjectName(QStringLiteral("lblMount"));
    ui.lblMount->setAccessibleName(QStringLiteral("Mount Action"));
    ui.lblMount->setAlignment(Qt::AlignCenter);
    ui.lblMount->setMinimumWidth(90);
    QFont labelFont = ui.lblMount->font();
    labelFont.setBold(true);
    ui.lblMount->setFont(labelFont);

    auto group = [&](const QString &title, std::initializer_list<QWidget *> widgets) {
        auto *box = new QGroupBox(title, central);
        // Named apart from the controls, so "Drives" finds the table alone.
        box->setAccessibleName(title + QStringLiteral(" actions"));
        auto *l = new QHBoxLayout(box);
        l->setSpacing(8);
        for (QWidget *w : widgets)
            l->addWidget(w);
        return box;
    };
    // Two rows so every caption fits: the everyday tape actions first, the
    // diagnostics (which want a blank tape) below them.
    auto *everyday = new QHBoxLayout;
    everyday->setSpacing(10);
    everyday->addWidget(group(QStringLiteral("Drives"), {ui.btnScan}));
    everyday->addWidget(group(QStringLiteral("Tape"), {ui.btnMount, ui.lblMount, ui.btnFormat}));
    everyday->addStretch(1);
    right->addLayout(everyday);

    auto *diagnostics = new QHBoxLayout;
    diagnostics->setSpacing(10);
    diagnostics->addWidget(group(QStringLiteral("Diagnostics"),
                                 {ui.btnTest, ui.btnHostValidation, ui.btnRetriveLog, ui.btnUpgrade}));
    diagnostics->addStretch(1);
    diagnostics->addWidget(ui.btnClearPreferences, 0, Qt::AlignBottom);
    right->addLayout(diagnostics);

    ui.progressIndicator = new QProgressBar(central);
    ui.progressIndicator->setObjectName(QStringLiteral("progressIndicator"));
    ui.progressIndicator->setAccessibleName(QStringLiteral("Progress"));
    ui.progressIndicator->setRange(0, 0); // busy, not a percentage
    ui.progressIndicator->setTextVisible(false);
    ui.progressIndicator->setMaximumHeight(8);
    QSizePolicy keep = ui.progressIndicator->sizePolicy();
    keep.setRetainSizeWhenHidden(true);
    ui.progressIndicator->setSizePolicy(keep);
    ui.progressIndicator->hide();
    right->addWidget(ui.progressIndicator);

    ui.rightScrollView = new QPlainTextEdit(central);
    ui.rightScrollView->setObjectName(QStringLiteral("rightScrollView"));
    ui.rightScrollView->setAccessibleName(QStringLiteral("Output"));
    ui.rightScrollView->setReadOnly(true);
    ui.rightScrollView->setUndoRedoEnabled(false);
    ui.rightScrollView->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    // A style hint instead of asking the platform for its fixed font: the
    // same monospaced face, without a font-database walk before the first frame.
    QFont mono(QStringLiteral("monospace"));
    mono.setStyleHint(QFont::TypeWriter);
    mono.setPointSize(10);
    ui.rightScrollView->setFont(mono);
    QPalette pane = ui.rightScrollView->palette();
    pane.setColor(QPalette::Base, QColor(0x12, 0x14, 0x18));
    pane.setColor(QPalette::Text, Qt::white);
    ui.rightScrollView->setPalette(pane);
    right->addWidget(ui.rightScrollView, 1);

    outer->addLayout(right, 1);
    setCentralWidget(central);

    auto *fileMenu = menuBar()->addMenu(QStringLiteral("&TapeDesk"));
    QAction *quit = fileMenu->addAction(QStringLiteral("&Quit"));
    quit->setObjectName(QStringLiteral("actionQuit"));
    quit->setShortcut(QKeySequence::Quit);
    connect(quit, &QAction::triggered, qApp, &QApplication::quit);

    // A fixed working surface without window buttons; the application quits
    // from its menu. The title still names it in the window list and to
    // assistive technology.
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint);
    setWindowTitle(QStringLiteral("TapeDesk"));
    setFixedSize(1100, 700);
}

void ViewController::connectActions()
{
    auto bind = [this](QPushButton *b, void (ViewController::*action)(QAbstractButton *)) {
        connect(b, &QPushButton::clicked, this, [this, b, action] { (this->*action)(b); });
    };
    bind(ui.btnScan, &ViewController::btnScan);
    bind(ui.btnMount, &ViewController::btnMount);
    bind(ui.btnRetriveLog, &ViewController::btnRetrieveLog);
    bind(ui.btnTest, &ViewController::btnRunTest);
    bind(ui.btnUpgrade, &ViewController::btnUpgrade);
    bind(ui.btnHostValidation, &ViewController::btnHostValidation);
    bind(ui.btnFormat, &ViewController::btnFormat);
    bind(ui.btnClearPreferences, &ViewController::btnClearPreferences);
    connect(ui.tableView->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { tableViewSelectionDidChange(); });
}

QString ViewController::shell(const QString &launchPath, const QStringList &arguments)
{
    return shellLaunch(launchPath, arguments, lastErrorOutput);
}

QString ViewController::shell(const QString &command)
{
    return shellCommand(command);
}

void ViewController::viewDidLoad(const QStringList &launchArguments)
{
    applyLaunchArguments(launchArguments);
    setOutputView(ui.rightScrollView);
}

void ViewController::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    if (!event->spontaneous())
        QTimer::singleShot(0, this, [this] { viewDidAppear(); });
}

void ViewController::viewDidAppear()
{
    const QString mounted = runResponsive([this] { return shell(QStringLiteral("mount | grep ltfs")); });
    consoleLine(QStringView(mounted));
    checkPathsAndScan();
}

void ViewController::checkPathsAndScan()
{
    if (!support.preferencesValid()) {
        // With no program path stored there is nothing to correct, only to
        // set up: the preferences window opens with the defaults instead.
        const bool firstStart = noToolPathSet();
        QString message = QStringLiteral("Looks like preferences settings could be wrong.");
        if (!firstStart)
            message += QLatin1Char('\n') + preferencesProblem();
        showResults(true, message);
        endProgress();
        if (firstStart) {
            m_awaitingSetup = true;
            Q_EMIT preferencesNeeded();
        }
        return;
    }
    m_awaitingSetup = false;
    if (support.isPreferencesSet()) {
        changeButtonStatus(ui.btnScan, 3, true);
        scanForDrives();
        changeButtonStatus(ui.btnScan, 0, true);
    }
}

void ViewController::preferencesSaved()
{
    // Only the setup a first start asked for goes on to a scan: at any other
    // time a Save may come while an operation runs, and the operator scans
    // when ready. Once the paths are valid the window is set up.
    if (m_awaitingSetup && ui.btnScan->isEnabled())
        checkPathsAndScan();
}

void ViewController::refreshDriveTable()
{
    postToMain([this] {
        m_model->reload(driveList.snapshot());
        // A reload clears the view's highlight while selectedDrive stays; show
        // the operator which row the actions act on again, without it counting
        // as a new selection.
        const qsizetype row = m_model->drives().indexOf(selectedDrive.get());
        if (row >= 0) {
            const QSignalBlocker quiet(ui.tableView->selectionModel());
            ui.tableView->selectRow(static_cast<int>(row));
        }
    });
}

void ViewController::tableViewSelectionDidChange()
{
    const QModelIndexList rows = ui.tableView->selectionModel()->selectedRows();
    const int row = rows.isEmpty() ? -1 : rows.constFirst().row();
    consoleLine(QStringView(QString::number(row)));
    if (row < 0)
        return;
    DrivePtr drive = m_model->driveAt(row);
    if (!drive)
        return;
    selectedDrive.set(drive);
    setMountLabel(drive->mounted() ? QStringLiteral("UNMOUNT") : QStringLiteral("MOUNT"));
    changeButtonStatus(ui.btnRetriveLog, 2, true);
    showResults(true, QStringLiteral("Ready \n") + drive->id() + QStringLiteral(" Selected"));
}

void ViewController::setMountLabel(const QString &text)
{
    ui.lblMount->setText(text);
}

void ViewController::postToMain(std::function<void()> f)
{
    postTo(this, [f = std::move(f)] {
        flushPendingOutput();
        f();
    });
}

void ViewController::runInBackground(std::function<void()> f)
{
    startInBackground(std::move(f));
}

QString ViewController::runResponsive(const std::function<QString()> &work)
{
    QEventLoop loop;
    QString result;
    std::atomic<bool> done{false};
    ++m_responsiveDepth;
    std::thread worker([&] {
        result = work();
        done = true;
        postTo(&loop, [&loop] { loop.quit(); });
    });
    while (!done)
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    worker.join();
    --m_responsiveDepth;
    return result;
}

} // namespace tapedesk
