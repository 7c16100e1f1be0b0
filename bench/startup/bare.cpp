// The baseline of bench_startup: the least a Qt Widgets program does to show a
// window of TapeDesk's size with a line of text in it (so the font system
// starts here too, as in any window an operator reads). It prints
// "first-frame" once its first paint has been handled, as tapedesk does with
// TAPEDESK_REPORT_FIRST_FRAME=1.

#include <QApplication>
#include <QLabel>
#include <QTimer>
#include <QWidget>
#include <cstdio>

namespace {

class BareWindow : public QWidget
{
protected:
    void paintEvent(QPaintEvent *event) override
    {
        QWidget::paintEvent(event);
        if (m_reported)
            return;
        m_reported = true;
        QTimer::singleShot(0, this, [] {
            std::fputs("first-frame\n", stdout);
            std::fflush(stdout);
        });
    }

private:
    bool m_reported = false;
};

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    BareWindow window;
    window.setFixedSize(1100, 700);
    QLabel text(QStringLiteral("TapeDesk"), &window);
    text.move(12, 12);
    window.show();
    return QApplication::exec();
}
