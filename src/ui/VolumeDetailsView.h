#pragma once

#include "operations/VolumeDetails.h"

#include <QWidget>

class QFormLayout;
class QLabel;
class QProgressBar;
class QPushButton;

namespace tapedesk {

class TapeEngine;

// The "Volume" tab beside the transcript: what LTFS reports of the selected
// drive's mounted tape, a refresh, and the volume opened in the desktop's
// file manager. The engine reads; this only shows its last report.
class VolumeDetailsView : public QWidget
{
    Q_OBJECT

public:
    explicit VolumeDetailsView(TapeEngine &engine, QWidget *parent = nullptr);

    void showReport(const VolumeReport &report);

    QPushButton *refreshButton() const { return m_refresh; }
    QPushButton *openButton() const { return m_open; }
    // The state line above the details ("Reading ...", the time-out, ...).
    QString stateText() const;
    // The value shown beside `label` ("Capacity", "Alerts", ...).
    QString valueOf(const QString &label) const;

protected:
    void showEvent(QShowEvent *event) override;

private:
    void openVolume();

    TapeEngine &m_engine;
    QString m_mountPoint;
    QLabel *m_title = nullptr;
    QLabel *m_state = nullptr;
    QProgressBar *m_usage = nullptr;
    QFormLayout *m_form = nullptr;
    QList<QLabel *> m_values;
    QPushButton *m_refresh = nullptr;
    QPushButton *m_open = nullptr;
    bool m_opened = false;
};

} // namespace tapedesk
