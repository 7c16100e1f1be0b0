#include "ui/WidgetDialogs.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

namespace tapedesk {

namespace {

QWidget *dialogParent()
{
    return QApplication::activeWindow();
}

// Buttons share one role so the box keeps them in the order they were added,
// whatever the desktop's button-order convention. Returns the index chosen, or
// -1 when the box was closed some other way.
int runMessageBox(QMessageBox::Icon icon, const QString &text, const QString &informative,
                  const QStringList &buttons)
{
    QMessageBox box(dialogParent());
    box.setIcon(icon);
    // The title is what a window list and a screen reader name the alert by;
    // the message is what the reader goes on to say about it.
    box.setWindowTitle(text);
    box.setAccessibleName(text);
    box.setAccessibleDescription(informative);
    box.setText(text);
    box.setInformativeText(informative);
    QList<QPushButton *> added;
    for (const QString &b : buttons)
        added << box.addButton(b, QMessageBox::ActionRole);
    if (!added.isEmpty())
        box.setDefaultButton(added.first());
    box.setEscapeButton(added.size() > 1 ? added.last() : added.first());
    box.exec();
    return static_cast<int>(added.indexOf(qobject_cast<QPushButton *>(box.clickedButton())));
}

// The file picker with types: the list shows only files of those types, but a
// name typed into the field bypasses that list. Such a file is refused the
// same way, and the picker stays open for another choice.
class TypedFileDialog final : public QFileDialog
{
public:
    TypedFileDialog(QWidget *parent, const QString &caption, const QStringList &types)
        : QFileDialog(parent, caption), m_types(types)
    {}

protected:
    void accept() override
    {
        const QStringList chosen = selectedFiles();
        if (!m_types.isEmpty() && !chosen.isEmpty() && QFileInfo(chosen.constFirst()).isFile() &&
            !m_types.contains(QFileInfo(chosen.constFirst()).suffix(), Qt::CaseInsensitive))
            return;
        QFileDialog::accept();
    }

private:
    QStringList m_types;
};

} // namespace

QString WidgetDialogs::getString(const QString &title, const QString &question, const QString &defaultValue)
{
    QDialog dialog(dialogParent());
    dialog.setObjectName(QStringLiteral("getStringDialog"));
    dialog.setWindowTitle(title);
    dialog.setAccessibleName(title);
    dialog.setAccessibleDescription(question);
    auto *layout = new QVBoxLayout(&dialog);
    auto *titleLabel = new QLabel(title, &dialog);
    QFont bold = titleLabel->font();
    bold.setBold(true);
    titleLabel->setFont(bold);
    layout->addWidget(titleLabel);
    layout->addWidget(new QLabel(question, &dialog));
    auto *field = new QLineEdit(defaultValue, &dialog);
    field->setAccessibleName(title);
    field->setMinimumSize(300, 24);
    layout->addWidget(field);
    auto *box = new QDialogButtonBox(&dialog);
    QPushButton *ok = box->addButton(QStringLiteral("OK"), QDialogButtonBox::ActionRole);
    QPushButton *cancel = box->addButton(QStringLiteral("Cancel"), QDialogButtonBox::ActionRole);
    ok->setDefault(true);
    QObject::connect(ok, &QPushButton::clicked, &dialog, &QDialog::accept);
    QObject::connect(cancel, &QPushButton::clicked, &dialog, &QDialog::reject);
    layout->addWidget(box);
    if (dialog.exec() == QDialog::Accepted)
        return field->text();
    return QStringLiteral("-1");
}

int WidgetDialogs::userOptionPrompt(const QString &title, const QString &question, const QString &t1,
                                    const QString &t2)
{
    return runMessageBox(QMessageBox::Warning, title, question, {t1, t2}) == 0 ? 0 : 1;
}

bool WidgetDialogs::confirm(const QString &title, const QString &message)
{
    return runMessageBox(QMessageBox::Warning, title, message,
                         {QStringLiteral("OK"), QStringLiteral("Cancel")}) == 0;
}

void WidgetDialogs::inform(const QString &title, const QString &informative)
{
    runMessageBox(QMessageBox::Warning, title, informative, {QStringLiteral("OK")});
}

QString WidgetDialogs::pickFile(const QStringList &fileTypes)
{
    TypedFileDialog panel(dialogParent(), kPickFileTitle, fileTypes);
    panel.setOption(QFileDialog::DontUseNativeDialog, true);
    panel.setFileMode(QFileDialog::ExistingFile);
    panel.setFilter(panel.filter() | QDir::Hidden);
    panel.setSizeGripEnabled(true);
    if (!fileTypes.isEmpty()) {
        QStringList patterns;
        for (const QString &type : fileTypes)
            patterns << QStringLiteral("*.") + type;
        panel.setNameFilter(patterns.join(QLatin1Char(' ')));
    }
    if (panel.exec() != QDialog::Accepted || panel.selectedFiles().isEmpty())
        return {};
    return panel.selectedFiles().constFirst();
}

QString WidgetDialogs::pickFolder()
{
    QFileDialog panel(dialogParent(), kPickFolderTitle);
    panel.setOption(QFileDialog::DontUseNativeDialog, true);
    panel.setFileMode(QFileDialog::Directory);
    panel.setOption(QFileDialog::ShowDirsOnly, true);
    panel.setLabelText(QFileDialog::Accept, QStringLiteral("Save"));
    panel.setSizeGripEnabled(false);
    if (panel.exec() != QDialog::Accepted || panel.selectedFiles().isEmpty())
        return QStringLiteral("-1");
    return panel.selectedFiles().constFirst();
}

} // namespace tapedesk
