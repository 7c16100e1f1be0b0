// Build-time generator of the documents compiled into TapeDesk: the operator's
// manual as a PDF (from its Markdown source) and the application icon. It uses
// only Qt's text and PDF classes, so the build needs no typesetting tools.
//
//   tapedesk_docgen manual <source.md> <output.pdf> <version>
//   tapedesk_docgen icon <output.png> <size>

#include <QColor>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPageLayout>
#include <QPageSize>
#include <QPainter>
#include <QPainterPath>
#include <QPdfWriter>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextFrameFormat>
#include <QTextImageFormat>
#include <QTextStream>
#include <QTextTable>
#include <QUrl>

namespace {

QImage drawIcon(int size)
{
    QImage img(size, size, QImage::Format_ARGB32_Premultiplied);
    img.fill(Qt::transparent);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(size / 256.0, size / 256.0);

    // Tile
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0x2b, 0x2d, 0x31));
    p.drawRoundedRect(QRectF(8, 8, 240, 240), 44, 44);

    // Cartridge shell, seen from the label side
    QPainterPath shell;
    shell.moveTo(40, 62);
    shell.lineTo(200, 62);
    shell.lineTo(216, 78);
    shell.lineTo(216, 200);
    shell.lineTo(40, 200);
    shell.closeSubpath();
    p.setBrush(QColor(0x2f, 0x7d, 0xd1));
    p.drawPath(shell);
    p.setBrush(QColor(0x1f, 0x5f, 0xa8));
    p.drawRect(QRectF(40, 176, 176, 24));

    // Barcode label
    p.setBrush(QColor(0xf2, 0xf2, 0xf2));
    p.drawRoundedRect(QRectF(60, 84, 136, 70), 6, 6);
    p.setBrush(QColor(0x1e, 0x1f, 0x22));
    const int bars[] = {3, 1, 2, 1, 3, 2, 1, 1, 3, 1, 2, 2, 1, 3, 1, 2, 1, 3};
    qreal x = 70;
    bool dark = true;
    for (int w : bars) {
        if (dark)
            p.drawRect(QRectF(x, 94, w * 2.2, 38));
        x += w * 2.2 + 1.6;
        dark = !dark;
    }
    p.setBrush(QColor(0x5a, 0xa9, 0xe6));
    p.drawRect(QRectF(70, 138, 116, 8));

    // Write-protect tab
    p.setBrush(QColor(0xe6, 0x9b, 0x2f));
    p.drawRect(QRectF(188, 182, 18, 12));
    return img;
}

QString readText(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(f.readAll());
}

// Markdown gives structure; the page look (fonts, heading colour, spacing,
// code blocks) is set here so the source stays plain.
void style(QTextDocument &doc)
{
    QFont body(QStringLiteral("DejaVu Sans"));
    body.setPointSizeF(10.5);
    doc.setDefaultFont(body);

    for (QTextBlock b = doc.begin(); b.isValid(); b = b.next()) {
        QTextCursor c(b);
        QTextBlockFormat bf = b.blockFormat();
        const int level = bf.headingLevel();
        if (level > 0) {
            bf.setTopMargin(level == 1 ? 4 : 14);
            bf.setBottomMargin(6);
            if (level == 1)
                bf.setPageBreakPolicy(QTextFormat::PageBreak_AlwaysBefore);
            c.setBlockFormat(bf);
            QTextCharFormat cf;
            cf.setForeground(QColor(0x1f, 0x5f, 0xa8));
            cf.setFontWeight(QFont::Bold);
            cf.setFontPointSize(level == 1 ? 20 : level == 2 ? 15 : 12.5);
            c.select(QTextCursor::BlockUnderCursor);
            c.mergeCharFormat(cf);
        } else if (bf.nonBreakableLines()) {
            // Code and sample output
            bf.setBackground(QColor(0xee, 0xf1, 0xf5));
            bf.setLeftMargin(12);
            c.setBlockFormat(bf);
        } else {
            bf.setBottomMargin(5);
            bf.setLineHeight(118, QTextBlockFormat::ProportionalHeight);
            c.setBlockFormat(bf);
        }
    }

    for (QTextFrame *frame : doc.rootFrame()->childFrames()) {
        auto *table = qobject_cast<QTextTable *>(frame);
        if (!table)
            continue;
        QTextTableFormat tf = table->format();
        tf.setCellPadding(4);
        tf.setCellSpacing(0);
        tf.setBorder(1);
        tf.setBorderBrush(QColor(0x9a, 0xa4, 0xb0));
        tf.setBorderCollapse(true);
        tf.setTopMargin(4);
        tf.setBottomMargin(8);
        table->setFormat(tf);
        // Header row
        for (int col = 0; col < table->columns(); ++col) {
            QTextTableCell cell = table->cellAt(0, col);
            QTextCharFormat cf = cell.format();
            cf.setBackground(QColor(0xe3, 0xea, 0xf3));
            cell.setFormat(cf);
        }
    }
}

// Fills the document's first block, a placeholder paragraph, with the title
// page. Writing into that block (rather than inserting before the first
// heading) leaves the heading's own format, and its page break, intact.
void addTitlePage(QTextDocument &doc, const QString &version)
{
    doc.addResource(QTextDocument::ImageResource, QUrl(QStringLiteral("tapedesk-icon")), drawIcon(512));
    QTextCursor c(doc.begin());
    c.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
    c.removeSelectedText();
    QTextBlockFormat centred;
    centred.setAlignment(Qt::AlignHCenter);
    centred.setTopMargin(140);
    c.setBlockFormat(centred);
    QTextImageFormat icon;
    icon.setName(QStringLiteral("tapedesk-icon"));
    icon.setWidth(160);
    icon.setHeight(160);
    c.insertImage(icon);
    QTextBlockFormat text = centred;
    text.setTopMargin(24);
    auto line = [&](const QString &s, qreal points, const QColor &colour, bool bold) {
        c.insertBlock(text);
        QTextCharFormat f;
        f.setFontPointSize(points);
        f.setForeground(colour);
        f.setFontWeight(bold ? QFont::Bold : QFont::Normal);
        c.insertText(s, f);
    };
    line(QStringLiteral("TapeDesk"), 30, QColor(0x1f, 0x5f, 0xa8), true);
    line(QStringLiteral("Operator's Manual"), 15, Qt::black, false);
    line(QStringLiteral("Version ") + version, 10, QColor(0x55, 0x55, 0x55), false);
}

int manual(const QString &source, const QString &output, const QString &version)
{
    const QString markdown = readText(source);
    if (markdown.isEmpty()) {
        QTextStream(stderr) << "docgen: cannot read " << source << '\n';
        return 1;
    }
    QTextDocument doc;
    doc.setMarkdown(QStringLiteral("Title page\n\n") + markdown, QTextDocument::MarkdownDialectGitHub);
    style(doc);
    addTitlePage(doc, version);

    QPdfWriter writer(output);
    writer.setTitle(QStringLiteral("TapeDesk Operator's Manual"));
    writer.setCreator(QStringLiteral("TapeDesk ") + version);
    writer.setResolution(300);
    writer.setPageLayout(QPageLayout(QPageSize(QPageSize::A4), QPageLayout::Portrait,
                                     QMarginsF(18, 16, 18, 16), QPageLayout::Millimeter));
    doc.print(&writer);
    if (!QFile::exists(output)) {
        QTextStream(stderr) << "docgen: cannot write " << output << '\n';
        return 1;
    }
    return 0;
}

int icon(const QString &output, int size)
{
    if (size <= 0 || !drawIcon(size).save(output, "PNG")) {
        QTextStream(stderr) << "docgen: cannot write " << output << '\n';
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    const QStringList args = QGuiApplication::arguments();
    if (args.size() == 5 && args.at(1) == QStringLiteral("manual"))
        return manual(args.at(2), args.at(3), args.at(4));
    if (args.size() == 4 && args.at(1) == QStringLiteral("icon"))
        return icon(args.at(2), args.at(3).toInt());
    QTextStream(stderr) << "usage: tapedesk_docgen manual <source.md> <output.pdf> <version>\n"
                           "       tapedesk_docgen icon <output.png> <size>\n";
    return 2;
}
