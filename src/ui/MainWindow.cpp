#include "ui/MainWindow.h"

#include "tools/Console.h"
#include "tools/ToolPaths.h"
#include "ui/DriveCell.h"
#include "ui/DriveTableModel.h"
#include "ui/InputHold.h"
#include "ui/LiveOutputView.h"
#include "ui/OperationWatch.h"
#include "ui/StatusImages.h"
#include "ui/VolumeDetailsView.h"
#include "ui/WidgetDialogs.h"

#include <QApplication>
#include <QFontDatabase>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QShowEvent>
#include <QSignalBlocker>
#include <QSplitter>
#include <QTabWidget>
#include <QTableView>
#include <QTextCursor>
#include <QTimer>
#include <QVBoxLayout>

namespace tapedesk {

namespace {

// A window that is shown but never drawn (on a desktop nobody looks at)
// starts its engine after this long instead.
constexpr int kUndrawnStartMs = 500;

// Posted by the first paint of a showing.
QEvent::Type firstFrameEvent()
{
    static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
    return type;
}

} // namespace

MainWindow::MainWindow(QWidget *parent) : QMainWindow(parent)
{
    setObjectName(QStringLiteral("MainWindow"));
    // The window asks with its own dialogs unless a provider is in place.
    if (!hasDialogProvider())
        setDialogProvider(std::make_unique<WidgetDialogs>());
    buildLayout();
    connectActions();
    connect(&engine, &TapeEngine::preferencesNeeded, this, &MainWindow::preferencesNeeded);
}

// The engine, a member, goes before the widgets: it ends the running tools
// and waits for its background parts while the widgets they report to exist.
MainWindow::~MainWindow() = default;

void MainWindow::buildLayout()
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
    // The object names stay as they were: assistive technology derives the
    // widgets' ids from them, and scripts that drive the window use those.
    ui.scanButton = makeButton(QStringLiteral("Scan"), "btnScan");
    ui.mountButton = makeButton(QStringLiteral("Mount"), "btnMount");
    ui.formatButton = makeButton(QStringLiteral("Format"), "btnFormat");
    ui.testButton = makeButton(QStringLiteral("Test"), "btnTest");
    ui.hostValidationButton = makeButton(QStringLiteral("Host Validation"), "btnHostValidation");
    ui.retrieveLogButton = makeButton(QStringLiteral("Retrieve Log"), "btnRetriveLog");
    ui.upgradeButton = makeButton(QStringLiteral("Upgrade"), "btnUpgrade");
    ui.clearMountedDrivesButton = makeButton(QStringLiteral("Clear Mounted Drives"), "btnClearPreferences");

    ui.mountLabel = new QLabel(QStringLiteral("MOUNT"), central);
    ui.mountLabel->setObjectName(QStringLiteral("lblMount"));
    // A screen reader reads the caption itself (kept so by setMountCaption);
    // what it is for goes into the description.
    ui.mountLabel->setAccessibleName(ui.mountLabel->text());
    ui.mountLabel->setAccessibleDescription(QStringLiteral("Mount Action"));
    ui.mountLabel->setAlignment(Qt::AlignCenter);
    ui.mountLabel->setMinimumWidth(90);
    QFont labelFont = ui.mountLabel->font();
    labelFont.setBold(true);
    ui.mountLabel->setFont(labelFont);

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
    everyday->addWidget(group(QStringLiteral("Drives"), {ui.scanButton}));
    everyday->addWidget(group(QStringLiteral("Tape"), {ui.mountButton, ui.mountLabel, ui.formatButton}));
    everyday->addStretch(1);
    right->addLayout(everyday);

    auto *diagnostics = new QHBoxLayout;
    diagnostics->setSpacing(10);
    diagnostics->addWidget(group(QStringLiteral("Diagnostics"), {ui.testButton, ui.hostValidationButton,
                                                                 ui.retrieveLogButton, ui.upgradeButton}));
    diagnostics->addStretch(1);
    diagnostics->addWidget(ui.clearMountedDrivesButton, 0, Qt::AlignBottom);
    right->addLayout(diagnostics);

    ui.progressBar = new QProgressBar(central);
    ui.progressBar->setObjectName(QStringLiteral("progressIndicator"));
    ui.progressBar->setAccessibleName(QStringLiteral("Progress"));
    ui.progressBar->setRange(0, 0); // busy, not a percentage
    ui.progressBar->setTextVisible(false);
    ui.progressBar->setMaximumHeight(8);
    QSizePolicy keep = ui.progressBar->sizePolicy();
    keep.setRetainSizeWhenHidden(true);
    ui.progressBar->setSizePolicy(keep);
    ui.progressBar->hide();
    // No status image: Stop ends whatever runs and has no outcome of its own.
    ui.stopButton = new QPushButton(QStringLiteral("Stop"), central);
    ui.stopButton->setObjectName(QStringLiteral("btnStop"));
    ui.stopButton->setAccessibleName(QStringLiteral("Stop"));
    ui.stopButton->setAccessibleDescription(QStringLiteral("Ends the running tool (Escape)"));
    ui.stopButton->setToolTip(QStringLiteral("Ends the running tool (Esc)"));
    ui.stopButton->setShortcut(QKeySequence(Qt::Key_Escape));
    ui.stopButton->setIcon(StatusImages::stopIcon(ui.stopButton->palette().color(QPalette::ButtonText)));
    // Reached by Tab, but a click leaves the focus where it was.
    ui.stopButton->setFocusPolicy(Qt::TabFocus);
    ui.stopButton->setFixedHeight(24);
    ui.stopButton->setMinimumWidth(80);
    QSizePolicy keepStop(QSizePolicy::Fixed, QSizePolicy::Fixed);
    keepStop.setRetainSizeWhenHidden(true);
    ui.stopButton->setSizePolicy(keepStop);
    ui.stopButton->hide();
    m_inputHold = new InputHold(ui.stopButton, this);
    m_watch = new OperationWatch(engine, this);
    auto *progressRow = new QHBoxLayout;
    progressRow->setSpacing(10);
    progressRow->addWidget(m_watch->elapsedLabel());
    progressRow->addWidget(ui.progressBar, 1, Qt::AlignVCenter);
    progressRow->addWidget(ui.stopButton);
    right->addLayout(progressRow);

    ui.transcript = new QPlainTextEdit(central);
    ui.transcript->setObjectName(QStringLiteral("rightScrollView"));
    ui.transcript->setAccessibleName(QStringLiteral("Output"));
    ui.transcript->setReadOnly(true);
    ui.transcript->setUndoRedoEnabled(false);
    ui.transcript->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    QPalette pane = ui.transcript->palette();
    pane.setColor(QPalette::Base, QColor(0x12, 0x14, 0x18));
    pane.setColor(QPalette::Text, Qt::white);
    ui.transcript->setPalette(pane);
    // The transcript is the first of the views that share the pane's room;
    // the others show more of the same operation or drive.
    ui.paneTabs = new QTabWidget(central);
    ui.paneTabs->setObjectName(QStringLiteral("paneTabs"));
    ui.paneTabs->setAccessibleName(QStringLiteral("Views"));
    ui.paneTabs->setDocumentMode(true);
    ui.paneTabs->addTab(ui.transcript, QStringLiteral("Transcript"));
    ui.paneTabs->addTab(m_watch->liveView(), QStringLiteral("Tool Output"));
    // The volume's view takes this place once the first frame is on screen
    // (volumeView()): measured for the first layout, it held that frame back.
    ui.paneTabs->addTab(new QWidget, QStringLiteral("Volume"));
    right->addWidget(ui.paneTabs, 1);

    outer->addLayout(right, 1);
    setCentralWidget(central);

    auto *fileMenu = menuBar()->addMenu(QStringLiteral("&TapeDesk"));
    QAction *quit = fileMenu->addAction(QStringLiteral("&Quit"));
    quit->setObjectName(QStringLiteral("actionQuit"));
    quit->setShortcut(QKeySequence::Quit);
    connect(quit, &QAction::triggered, qApp, &QApplication::quit);
    m_watch->addMenuCommands(fileMenu, quit);

    // A fixed working surface without window buttons; the application quits
    // from its menu. The title still names it in the window list and to
    // assistive technology.
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint);
    setWindowTitle(QStringLiteral("TapeDesk"));
    setFixedSize(1100, 700);
}

void MainWindow::connectActions()
{
    connect(ui.scanButton, &QPushButton::clicked, this, &MainWindow::scan);
    connect(ui.mountButton, &QPushButton::clicked, this, &MainWindow::mount);
    connect(ui.retrieveLogButton, &QPushButton::clicked, this, &MainWindow::retrieveLog);
    connect(ui.testButton, &QPushButton::clicked, this, &MainWindow::runTest);
    connect(ui.upgradeButton, &QPushButton::clicked, this, &MainWindow::upgrade);
    connect(ui.hostValidationButton, &QPushButton::clicked, this, &MainWindow::validateHost);
    connect(ui.formatButton, &QPushButton::clicked, this, &MainWindow::format);
    connect(ui.clearMountedDrivesButton, &QPushButton::clicked, this, &MainWindow::clearMountedDrives);
    connect(ui.stopButton, &QPushButton::clicked, this, &MainWindow::stop);
    connect(ui.tableView->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &MainWindow::driveSelectionChanged);
}

void MainWindow::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    if (event->spontaneous())
        return;
    // The engine starts once the first frame is on screen: the scan's child
    // processes and the journal would otherwise hold that frame back.
    m_awaitingFirstFrame = true;
    QTimer::singleShot(kUndrawnStartMs, this, [this] {
        if (m_awaitingFirstFrame)
            startAfterFirstFrame();
    });
}

void MainWindow::paintEvent(QPaintEvent *event)
{
    QMainWindow::paintEvent(event);
    // The whole frame is drawn in this pass, child widgets after the window;
    // a low priority lets what the frame itself queued go first.
    if (m_awaitingFirstFrame)
        QCoreApplication::postEvent(this, new QEvent(firstFrameEvent()), Qt::LowEventPriority);
}

bool MainWindow::event(QEvent *event)
{
    if (event->type() != firstFrameEvent())
        return QMainWindow::event(event);
    if (m_awaitingFirstFrame)
        startAfterFirstFrame();
    return true;
}

VolumeDetailsView *MainWindow::volumeView()
{
    if (!m_volumeView) {
        m_volumeView = new VolumeDetailsView(engine);
        const int tab = ui.paneTabs->count() - 1;
        const bool current = ui.paneTabs->currentIndex() == tab;
        QWidget *placeholder = ui.paneTabs->widget(tab);
        ui.paneTabs->removeTab(tab);
        ui.paneTabs->addTab(m_volumeView, QStringLiteral("Volume"));
        delete placeholder;
        if (current)
            ui.paneTabs->setCurrentIndex(tab);
    }
    return m_volumeView;
}

void MainWindow::startAfterFirstFrame()
{
    m_awaitingFirstFrame = false;
    volumeView();
    if (!m_paneFontsSet) {
        // The panes are empty in the first frame, and finding the monospaced
        // face and its fallbacks took it a few percent of its time: they get
        // it now, before anything is written to them. A style hint instead of
        // asking the platform for its fixed font: the same face, without a
        // font-database walk.
        m_paneFontsSet = true;
        QFont mono(QStringLiteral("monospace"));
        mono.setStyleHint(QFont::TypeWriter);
        mono.setPointSize(10);
        ui.transcript->setFont(mono);
        m_watch->liveView()->setFont(mono);
    }
    Q_EMIT firstFrameDrawn();
    engine.start();
}

void MainWindow::preferencesSaved()
{
    engine.preferencesSaved();
}

void MainWindow::scan()
{
    engine.perform(Action::Scan);
}

void MainWindow::mount()
{
    engine.perform(Action::Mount);
}

void MainWindow::format()
{
    engine.perform(Action::Format);
}

void MainWindow::upgrade()
{
    engine.perform(Action::Upgrade);
}

void MainWindow::retrieveLog()
{
    engine.perform(Action::RetrieveLog);
}

void MainWindow::runTest()
{
    engine.perform(Action::Test);
}

void MainWindow::validateHost()
{
    engine.perform(Action::HostValidation);
}

void MainWindow::clearMountedDrives()
{
    engine.perform(Action::ClearMountedDrives);
}

void MainWindow::stop()
{
    engine.stop();
}

void MainWindow::driveSelectionChanged()
{
    const QModelIndexList rows = ui.tableView->selectionModel()->selectedRows();
    const int row = rows.isEmpty() ? -1 : rows.constFirst().row();
    consoleLine(QStringView(QString::number(row)));
    if (row >= 0)
        engine.selectDrive(m_model->driveAt(row));
}

QPushButton *MainWindow::buttonFor(Action action) const
{
    switch (action) {
    case Action::Scan:
        return ui.scanButton;
    case Action::Mount:
    case Action::Recover: // asked for by the mount, and judged with it
        return ui.mountButton;
    case Action::Format:
        return ui.formatButton;
    case Action::Test:
        return ui.testButton;
    case Action::HostValidation:
        return ui.hostValidationButton;
    case Action::RetrieveLog:
        return ui.retrieveLogButton;
    case Action::Upgrade:
        return ui.upgradeButton;
    case Action::ClearMountedDrives:
        return ui.clearMountedDrivesButton;
    }
    return nullptr;
}

void MainWindow::clearPane()
{
    ui.transcript->clear();
}

void MainWindow::appendToPane(const QString &text)
{
    QPlainTextEdit *pane = ui.transcript;
    QTextCursor cursor(pane->document());
    cursor.movePosition(QTextCursor::End);
    QTextCharFormat white;
    white.setForeground(Qt::white);
    cursor.insertText(text, white);
    pane->verticalScrollBar()->setValue(pane->verticalScrollBar()->maximum());
}

void MainWindow::setStatus(Action action, int status)
{
    QPushButton *button = buttonFor(action);
    button->setIcon(StatusImages::icon(status));
    // The image says nothing to a screen reader; the description does, and
    // setting it raises the event that has the reader announce it. An
    // unchanged status (choosing another drive) is not announced again.
    const QString spoken = StatusImages::spokenName(status);
    if (button->accessibleDescription() != spoken)
        button->setAccessibleDescription(spoken);
    // Last, so whoever watches it finds the image and its words in place.
    // Tests read the status here without decoding pixels.
    button->setProperty("statusImage", StatusImages::imageName(status));
}

void MainWindow::setMountCaption(const QString &caption)
{
    ui.mountLabel->setText(caption);
    // Named by its text, so a screen reader says what Mount does now; an
    // unchanged caption is not announced twice.
    if (ui.mountLabel->accessibleName() != caption)
        ui.mountLabel->setAccessibleName(caption);
}

void MainWindow::progressStarted()
{
    enableActions(false);
    ui.progressBar->show();
    ui.stopButton->show();
    m_watch->progressShown(true);
}

void MainWindow::progressEnded()
{
    enableActions(true);
    ui.progressBar->hide();
    ui.stopButton->hide();
    m_inputHold = new InputHold(ui.stopButton, this);
    m_watch->progressShown(false);
}

void MainWindow::toolStarted(const QString &program, const QStringList &arguments)
{
    m_watch->liveView()->showToolStarted(program, arguments);
}

void MainWindow::toolOutput(OutputStream stream, QByteArrayView chunk)
{
    m_watch->liveView()->showOutput(stream, chunk);
}

bool MainWindow::holdInputButStop(bool held)
{
    m_inputHold->setHeld(held);
    return true;
}

void MainWindow::enableActions(bool enabled)
{
    for (QWidget *w : std::initializer_list<QWidget *>{ui.scanButton, ui.mountButton, ui.retrieveLogButton,
                                                       ui.testButton, ui.hostValidationButton,
                                                       ui.upgradeButton, ui.formatButton, ui.tableView})
        w->setEnabled(enabled);
}

void MainWindow::drivesChanged(const QList<DrivePtr> &drives, const DrivePtr &selected)
{
    m_model->reload(drives);
    // A reload clears the view's highlight while the selection stays; show
    // the operator which row the actions act on again, without it counting
    // as a new selection.
    const qsizetype row = m_model->drives().indexOf(selected);
    if (row >= 0) {
        const QSignalBlocker quiet(ui.tableView->selectionModel());
        ui.tableView->selectRow(static_cast<int>(row));
    }
}

void MainWindow::volumeDetailsChanged(const VolumeReport &report)
{
    volumeView()->showReport(report);
}

} // namespace tapedesk
