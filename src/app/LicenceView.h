#pragma once

#include <QString>
#include <QWidget>

class QTextBrowser;

namespace tapedesk {

inline const QString EULA_AGREED_KEY = QStringLiteral("EULA_AGREED");

// The licence agreement. Showing it is what counts: the flag is written each
// time the view is loaded.
class LicenceView : public QWidget
{
    Q_OBJECT

public:
    explicit LicenceView(QWidget *parent = nullptr);

    static QString licenceText();
    QTextBrowser *textView() const { return m_text; }

private:
    QTextBrowser *m_text = nullptr;
};

} // namespace tapedesk
