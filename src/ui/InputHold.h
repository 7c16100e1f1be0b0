#pragma once

#include <QObject>

class QWidget;

namespace tapedesk {

// While an operation holds the input, the application's input reaches only
// the Stop button and the dialog a stop may ask. Holds nest: input flows
// again when the last one is released.
class InputHold : public QObject
{
    Q_OBJECT

public:
    InputHold(QWidget *stopButton, QObject *parent);

    void setHeld(bool held);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *m_stopButton;
    int m_holds = 0;
};

} // namespace tapedesk
