#include "ui/VolumeDetailsView.h"

#include "operations/TapeEngine.h"

#include <QDesktopServices>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace tapedesk {

namespace {

QString stateLine(const VolumeReport &report)
{
    switch (report.state) {
    case VolumeReport::State::NoDrive:
        return QStringLiteral("Select a drive to see its tape.");
    case VolumeReport::State::NotMounted:
        return QStringLiteral("No volume is mounted on this drive. Mount it to see its details.");
    case VolumeReport::State::Reading:
        return QStringLiteral("Reading the volume's details...");
    case VolumeReport::State::Read:
        return QStringLiteral("As LTFS reports them now.");
    case VolumeReport::State::TimedOut:
    case VolumeReport::State::Unreadable:
        return report.problem;
    }
    return {};
}

} // namespace

VolumeDetailsView::VolumeDetailsView(TapeEngine &engine, QWidget *parent) : QWidget(parent), m_engine(engine)
{
    setObjectName(QStringLiteral("volumeDetails"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(10);

    m_title = new QLabel(this);
    m_state = new QLabel(this);
    m_state->setObjectName(QStringLiteral("volumeState"));
    m_state->setWordWrap(true);
    layout->addWidget(m_title);
    layout->addWidget(m_state);

    m_usage = new QProgressBar(this);
    m_usage->setAccessibleName(QStringLiteral("Used"));
    m_usage->setRange(0, 1000);
    m_usage->setTextVisible(true);
    QSizePolicy keep = m_usage->sizePolicy();
    keep.setRetainSizeWhenHidden(true);
    m_usage->setSizePolicy(keep);
    layout->addWidget(m_usage);

    m_form = new QFormLayout;
    m_form->setLabelAlignment(Qt::AlignRight);
    m_form->setHorizontalSpacing(16);
    for (const auto &[label, value] : volumeDetailRows(VolumeDetails{})) {
        auto *field = new QLabel(value, this);
        field->setWordWrap(true);
        field->setAccessibleDescription(label);
        m_form->addRow(label + QLatin1Char(':'), field);
        m_values << field;
    }
    layout->addLayout(m_form);
    layout->addStretch(1);

    auto *buttons = new QHBoxLayout;
    m_refresh = new QPushButton(QStringLiteral("Refresh"), this);
    m_refresh->setObjectName(QStringLiteral("btnRefreshVolume"));
    m_refresh->setToolTip(QStringLiteral("Read the volume's details again"));
    m_open = new QPushButton(QStringLiteral("Open Volume"), this);
    m_open->setObjectName(QStringLiteral("btnOpenVolume"));
    m_open->setToolTip(QStringLiteral("Open the mounted volume in the file manager"));
    buttons->addWidget(m_refresh);
    buttons->addWidget(m_open);
    buttons->addStretch(1);
    layout->addLayout(buttons);

    connect(m_refresh, &QPushButton::clicked, this, [this] { m_engine.refreshVolumeDetails(); });
    connect(m_open, &QPushButton::clicked, this, &VolumeDetailsView::openVolume);
    showReport(VolumeReport{});
}

void VolumeDetailsView::showReport(const VolumeReport &report)
{
    const bool mounted =
        report.state != VolumeReport::State::NoDrive && report.state != VolumeReport::State::NotMounted;
    m_mountPoint = mounted ? report.mountPoint : QString();
    m_title->setText(report.driveId.isEmpty() ? QStringLiteral("No drive selected")
                                              : report.driveId + QStringLiteral("  ") + report.mountPoint);
    m_state->setText(stateLine(report));
    const bool trouble =
        report.state == VolumeReport::State::TimedOut || report.state == VolumeReport::State::Unreadable;
    m_state->setStyleSheet(trouble ? QStringLiteral("color: #e8a33d;") : QString());
    m_open->setEnabled(mounted);
    m_refresh->setEnabled(!report.driveId.isEmpty());

    const VolumeDetails &d = report.details;
    const bool read = report.state == VolumeReport::State::Read;
    const QList<std::pair<QString, QString>> rows = volumeDetailRows(d);
    for (qsizetype i = 0; i < rows.size() && i < m_values.size(); ++i)
        m_values[i]->setText(read ? rows[i].second : QStringLiteral("-"));
    const bool usage = read && d.capacityBytes && d.usedBytes && *d.capacityBytes > 0;
    m_usage->setVisible(usage);
    if (usage) {
        m_usage->setValue(static_cast<int>(*d.usedBytes * 1000 / *d.capacityBytes));
        m_usage->setFormat(
            QStringLiteral("%1 of %2 used").arg(byteSize(*d.usedBytes), byteSize(*d.capacityBytes)));
    }
}

void VolumeDetailsView::showEvent(QShowEvent *event)
{
    // The title's own font and the selectable values are set up when the tab
    // is first opened: a font of its own and ten selectable labels (each keeps
    // a text document) measured for the main window's first layout held its
    // first frame back.
    if (!m_opened) {
        m_opened = true;
        QFont titleFont = m_title->font();
        titleFont.setBold(true);
        titleFont.setPointSizeF(titleFont.pointSizeF() * 1.2);
        m_title->setFont(titleFont);
        for (QLabel *value : std::as_const(m_values))
            value->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    QWidget::showEvent(event);
}

QString VolumeDetailsView::stateText() const
{
    return m_state->text();
}

QString VolumeDetailsView::valueOf(const QString &label) const
{
    for (int row = 0; row < m_form->rowCount(); ++row) {
        const auto *name = qobject_cast<QLabel *>(m_form->itemAt(row, QFormLayout::LabelRole)->widget());
        if (name && name->text() == label + QLatin1Char(':'))
            return qobject_cast<QLabel *>(m_form->itemAt(row, QFormLayout::FieldRole)->widget())->text();
    }
    return {};
}

void VolumeDetailsView::openVolume()
{
    if (m_mountPoint.isEmpty())
        return;
    const QUrl url = QUrl::fromLocalFile(m_mountPoint);
    if (QDesktopServices::openUrl(url))
        return;
    // Some platform integrations (offscreen, minimal window managers) offer no
    // desktop services; the freedesktop opener is what they would have run.
    // Detached rather than through the tool runner: the file manager is the
    // operator's and outlives TapeDesk.
    if (!QProcess::startDetached(QStringLiteral("xdg-open"), {url.toString(QUrl::FullyEncoded)}))
        m_state->setText(QStringLiteral("No file manager could be started for %1.").arg(m_mountPoint));
}

} // namespace tapedesk
