#include "ui/ViewController.h"

#include "operations/VolumeName.h"
#include "tools/Console.h"
#include "tools/HandOff.h"
#include "tools/ToolPaths.h"
#include "ui/DriveCell.h"
#include "ui/DriveTableModel.h"
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
#include <QLineEdit>
#include <QMenuBar>
#include <QPainter>
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
constexpr int kAppearUndrawnMs = 500;

QEvent::Type appearEvent()
{
    static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
    return type;
}

// The stop square of media controls in the caption's own colour: no status
// colour, since Stop has no outcome of its own. Qt greys it when disabled.
QIcon stopIcon(const QColor &colour)
{
    QPixmap square(16, 16);
    square.fill(Qt::transparent);
    QPainter painter(&square);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawRoundedRect(QRectF(3, 3, 10, 10), 1.5, 1.5);
    painter.end();
    return QIcon(square);
}

} // namespace

ViewController::ViewController(QWidget *parent) : QMainWindow(parent)
{
    setObjectName(QStringLiteral("ViewController"));
    // The window asks with its own dialogs unless a provider is in place.
    if (!hasDialogProvider())
        setDialogProvider(std::make_unique<WidgetDialogs>());
    buildLayout();
    connectActions();
    connect(&engine, &TapeEngine::preferencesNeeded, this, &ViewController::preferencesNeeded);
}

// The engine, a member, goes before the widgets: it ends the running tools
// and waits for its background parts while the widgets they report to exist.
ViewController::~ViewController() = default;

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
    // A screen reader reads the caption itself (kept so by setMountCaption);
    // what it is for goes into the description.
    ui.lblMount->setAccessibleName(ui.lblMount->text());
    ui.lblMount->setAccessibleDescription(QStringLiteral("Mount Action"));
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
    // No status image: Stop ends whatever runs and has no outcome of its own.
    ui.btnStop = new QPushButton(QStringLiteral("Stop"), central);
    ui.btnStop->setObjectName(QStringLiteral("btnStop"));
    ui.btnStop->setAccessibleName(QStringLiteral("Stop"));
    ui.btnStop->setAccessibleDescription(QStringLiteral("Ends the running tool (Escape)"));
    ui.btnStop->setToolTip(QStringLiteral("Ends the running tool (Esc)"));
    ui.btnStop->setShortcut(QKeySequence(Qt::Key_Escape));
    ui.btnStop->setIcon(stopIcon(ui.btnStop->palette().color(QPalette::ButtonText)));
    // Reached by Tab, but a click leaves the focus where it was.
    ui.btnStop->setFocusPolicy(Qt::TabFocus);
    ui.btnStop->setFixedHeight(24);
    ui.btnStop->setMinimumWidth(80);
    QSizePolicy keepStop(QSizePolicy::Fixed, QSizePolicy::Fixed);
    keepStop.setRetainSizeWhenHidden(true);
    ui.btnStop->setSizePolicy(keepStop);
    ui.btnStop->hide();
    m_watch = new OperationWatch(engine, this);
    auto *progressRow = new QHBoxLayout;
    progressRow->setSpacing(10);
    progressRow->addWidget(m_watch->elapsedLabel());
    progressRow->addWidget(ui.progressIndicator, 1, Qt::AlignVCenter);
    progressRow->addWidget(ui.btnStop);
    right->addLayout(progressRow);

    ui.rightScrollView = new QPlainTextEdit(central);
    ui.rightScrollView->setObjectName(QStringLiteral("rightScrollView"));
    ui.rightScrollView->setAccessibleName(QStringLiteral("Output"));
    ui.rightScrollView->setReadOnly(true);
    ui.rightScrollView->setUndoRedoEnabled(false);
    ui.rightScrollView->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    QPalette pane = ui.rightScrollView->palette();
    pane.setColor(QPalette::Base, QColor(0x12, 0x14, 0x18));
    pane.setColor(QPalette::Text, Qt::white);
    ui.rightScrollView->setPalette(pane);
    // The transcript is the first of the views that share the pane's room;
    // the others show more of the same operation or drive.
    ui.paneTabs = new QTabWidget(central);
    ui.paneTabs->setObjectName(QStringLiteral("paneTabs"));
    ui.paneTabs->setAccessibleName(QStringLiteral("Views"));
    ui.paneTabs->setDocumentMode(true);
    ui.paneTabs->addTab(ui.rightScrollView, QStringLiteral("Transcript"));
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
    bind(ui.btnStop, &ViewController::btnStop);
    connect(ui.tableView->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { tableViewSelectionDidChange(); });
}

void ViewController::viewDidLoad(const QStringList &launchArguments)
{
    applyLaunchArguments(launchArguments);
}

void ViewController::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    if (event->spontaneous())
        return;
    // The engine starts once the first frame is on screen: the scan's child
    // processes and the journal would otherwise hold that frame back.
    m_appearing = true;
    QTimer::singleShot(kAppearUndrawnMs, this, [this] {
        if (m_appearing)
            viewDidAppear();
    });
}

void ViewController::paintEvent(QPaintEvent *event)
{
    QMainWindow::paintEvent(event);
    // The whole frame is drawn in this pass, child widgets after the window;
    // a low priority lets what the frame itself queued go first.
    if (m_appearing)
        QCoreApplication::postEvent(this, new QEvent(appearEvent()), Qt::LowEventPriority);
}

bool ViewController::event(QEvent *event)
{
    if (event->type() != appearEvent())
        return QMainWindow::event(event);
    if (m_appearing)
        viewDidAppear();
    return true;
}

VolumeDetailsView *ViewController::volumeView()
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

void ViewController::viewDidAppear()
{
    m_appearing = false;
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
        ui.rightScrollView->setFont(mono);
        m_watch->liveView()->setFont(mono);
    }
    Q_EMIT appeared();
    engine.start();
}

void ViewController::preferencesSaved()
{
    engine.preferencesSaved();
}

void ViewController::btnScan(QAbstractButton *)
{
    engine.perform(Action::Scan);
}

void ViewController::btnMount(QAbstractButton *)
{
    engine.perform(Action::Mount);
}

void ViewController::btnFormat(QAbstractButton *)
{
    engine.perform(Action::Format);
}

void ViewController::btnUpgrade(QAbstractButton *)
{
    engine.perform(Action::Upgrade);
}

void ViewController::btnRetrieveLog(QAbstractButton *)
{
    engine.perform(Action::RetrieveLog);
}

void ViewController::btnRunTest(QAbstractButton *)
{
    engine.perform(Action::Test);
}

void ViewController::btnHostValidation(QAbstractButton *)
{
    engine.perform(Action::HostValidation);
}

void ViewController::btnClearPreferences(QAbstractButton *)
{
    engine.perform(Action::ClearMountedDrives);
}

void ViewController::btnStop(QAbstractButton *)
{
    engine.stop();
}

void ViewController::controlTextDidChange(QLineEdit *field)
{
    if (!field)
        return;
    // One character per change: a longer text pasted at once loses only its
    // last character. A field wired to this uses textEdited, which this
    // setText does not raise again.
    const QString text = field->text();
    if (graphemeCount(text) >= 4)
        field->setText(withoutLastGrapheme(text));
}

void ViewController::tableViewSelectionDidChange()
{
    const QModelIndexList rows = ui.tableView->selectionModel()->selectedRows();
    const int row = rows.isEmpty() ? -1 : rows.constFirst().row();
    consoleLine(QStringView(QString::number(row)));
    if (row >= 0)
        engine.selectDrive(m_model->driveAt(row));
}

QPushButton *ViewController::buttonFor(Action action) const
{
    switch (action) {
    case Action::Scan:
        return ui.btnScan;
    case Action::Mount:
    case Action::Recover: // asked for by the mount, and judged with it
        return ui.btnMount;
    case Action::Format:
        return ui.btnFormat;
    case Action::Test:
        return ui.btnTest;
    case Action::HostValidation:
        return ui.btnHostValidation;
    case Action::RetrieveLog:
        return ui.btnRetriveLog;
    case Action::Upgrade:
        return ui.btnUpgrade;
    case Action::ClearMountedDrives:
        return ui.btnClearPreferences;
    }
    return nullptr;
}

void ViewController::clearPane()
{
    ui.rightScrollView->clear();
}

void ViewController::appendToPane(const QString &text)
{
    QPlainTextEdit *pane = ui.rightScrollView;
    QTextCursor cursor(pane->document());
    cursor.movePosition(QTextCursor::End);
    QTextCharFormat white;
    white.setForeground(Qt::white);
    cursor.insertText(text, white);
    pane->verticalScrollBar()->setValue(pane->verticalScrollBar()->maximum());
}

void ViewController::setStatus(Action action, int status)
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

void ViewController::setMountCaption(const QString &caption)
{
    ui.lblMount->setText(caption);
    // Named by its text, so a screen reader says what Mount does now; an
    // unchanged caption is not announced twice.
    if (ui.lblMount->accessibleName() != caption)
        ui.lblMount->setAccessibleName(caption);
}

void ViewController::progressStarted()
{
    enableActions(false);
    ui.progressIndicator->show();
    ui.btnStop->show();
    m_watch->progressShown(true);
}

void ViewController::progressEnded()
{
    enableActions(true);
    ui.progressIndicator->hide();
    ui.btnStop->hide();
    m_watch->progressShown(false);
}

void ViewController::toolStarted(const QString &program, const QStringList &arguments)
{
    m_watch->liveView()->showToolStarted(program, arguments);
}

void ViewController::toolOutput(OutputStream stream, QByteArrayView chunk)
{
    m_watch->liveView()->showOutput(stream, chunk);
}

bool ViewController::holdInputButStop(bool held)
{
    m_inputHolds += held ? 1 : -1;
    if (held && m_inputHolds == 1)
        qApp->installEventFilter(this);
    else if (!held && m_inputHolds == 0)
        qApp->removeEventFilter(this);
    return true;
}

bool ViewController::eventFilter(QObject *watched, QEvent *event)
{
    seeHandOff(event);
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
    case QEvent::Wheel:
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
    case QEvent::Shortcut:
    case QEvent::ContextMenu:
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::InputMethod:
        break;
    default:
        return false;
    }
    // A window hands its input on to the widget under it, which is judged here.
    auto *widget = qobject_cast<QWidget *>(watched);
    if (!widget && watched->isWindowType())
        return false;
    if (widget == ui.btnStop)
        return false;
    // The stop's own question about mkltfs.
    QWidget *modal = QApplication::activeModalWidget();
    return !(widget && modal && (widget == modal || modal->isAncestorOf(widget)));
}

void ViewController::enableActions(bool enabled)
{
    for (QWidget *w :
         std::initializer_list<QWidget *>{ui.btnScan, ui.btnMount, ui.btnRetriveLog, ui.btnTest,
                                          ui.btnHostValidation, ui.btnUpgrade, ui.btnFormat, ui.tableView})
        w->setEnabled(enabled);
}

void ViewController::drivesChanged(const QList<DrivePtr> &drives, const DrivePtr &selected)
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

void ViewController::volumeDetailsChanged(const VolumeReport &report)
{
    volumeView()->showReport(report);
}

} // namespace tapedesk
