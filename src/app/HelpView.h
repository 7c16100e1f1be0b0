#pragma once

#include <QString>
#include <QWidget>

class QPdfDocument;
class QPdfView;

namespace tapedesk {

// Where the operator's manual is compiled into the binary.
inline const QString kManualResource = QStringLiteral(":/manual/TapeDesk-Manual.pdf");

// The help window's view: the manual as a PDF, scaled to the view's width.
class HelpView : public QWidget
{
    Q_OBJECT

public:
    explicit HelpView(QWidget *parent = nullptr, const QString &manual = kManualResource);

    QPdfView *pdfView() const { return m_view; }
    QPdfDocument *document() const { return m_document; }

private:
    QString m_manual;
    QPdfView *m_view = nullptr;
    QPdfDocument *m_document = nullptr;
};

} // namespace tapedesk
