#include "app/HelpView.h"

#include "tools/Console.h"

#include <QFile>
#include <QPdfDocument>
#include <QPdfView>
#include <QVBoxLayout>

namespace tapedesk {

HelpView::HelpView(QWidget *parent, const QString &manual) : QWidget(parent), m_manual(manual)
{
    setObjectName(QStringLiteral("helpView"));
    setAccessibleName(QStringLiteral("TapeDesk manual"));

    m_view = new QPdfView(this);
    m_view->setObjectName(QStringLiteral("pdfView"));
    m_view->setAccessibleName(QStringLiteral("TapeDesk manual"));
    m_view->setPageMode(QPdfView::PageMode::MultiPage);
    m_view->setZoomMode(QPdfView::ZoomMode::FitToWidth);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_view);

    m_document = new QPdfDocument(this);
    // Without the manual the window stays empty rather than failing: help is
    // never worth losing the application over.
    QFile file(m_manual);
    if (!file.open(QIODevice::ReadOnly)) {
        consoleLine(QStringLiteral("Manual not found: ") + m_manual);
        return;
    }
    // Only a PDF goes to the PDF engine: it does not clean up after a file
    // it cannot parse.
    if (!file.read(5).startsWith("%PDF-")) {
        consoleLine(QStringLiteral("Manual is not a PDF: ") + m_manual);
        return;
    }
    file.close();
    const QPdfDocument::Error error = m_document->load(m_manual);
    if (error != QPdfDocument::Error::None) {
        consoleLine(QStringLiteral("Manual could not be opened: ") + m_manual);
        return;
    }
    m_view->setDocument(m_document);
}

} // namespace tapedesk

// Looked up by name when the help is first opened (app/WindowModules.h).
extern "C" Q_DECL_EXPORT QWidget *tapedesk_makeHelpView()
{
    return new tapedesk::HelpView;
}
