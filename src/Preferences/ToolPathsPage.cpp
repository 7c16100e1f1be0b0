#include "Preferences/ToolPathsPage.h"

#include "tools/PathDefaults.h"
#include "tools/SettingsStore.h"
#include "tools/ToolPaths.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tapedesk {

ToolPathsPage::ToolPathsPage(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("toolPathsPage"));
    setAccessibleName(QStringLiteral("Tool paths"));

    auto field = [this](const QString &name, const QString &accessible) {
        auto *edit = new QLineEdit(this);
        edit->setObjectName(name);
        edit->setAccessibleName(accessible);
        edit->setMinimumWidth(420);
        return edit;
    };
    auto button = [this](const QString &name, const QString &text, const QString &accessible) {
        auto *b = new QPushButton(text, this);
        b->setObjectName(name);
        b->setAccessibleName(accessible);
        b->setAutoDefault(false);
        return b;
    };

    itdtPathEdit = field(QStringLiteral("txtITDT"), QStringLiteral("itdt program path"));
    ltfsPathEdit = field(QStringLiteral("txtLTFS"), QStringLiteral("ltfs program path"));
    mkltfsPathEdit = field(QStringLiteral("txtMK"), QStringLiteral("mkltfs program path"));
    outputFolderEdit = field(QStringLiteral("txtOutput"), QStringLiteral("Output folder path"));
    ui.chooseItdtButton =
        button(QStringLiteral("btnITDT"), QStringLiteral("Choose…"), QStringLiteral("Choose itdt program"));
    ui.chooseLtfsButton =
        button(QStringLiteral("btnLTFS"), QStringLiteral("Choose…"), QStringLiteral("Choose ltfs program"));
    ui.chooseMkltfsButton =
        button(QStringLiteral("btnMK"), QStringLiteral("Choose…"), QStringLiteral("Choose mkltfs program"));
    ui.chooseOutputFolderButton = button(QStringLiteral("btnOutput"), QStringLiteral("Choose…"),
                                         QStringLiteral("Choose output folder"));
    ui.resetButton =
        button(QStringLiteral("btnReset"), QStringLiteral("Reset"), QStringLiteral("Reset to defaults"));
    ui.saveButton =
        button(QStringLiteral("btnSave"), QStringLiteral("Save"), QStringLiteral("Save preferences"));

    statusLabel = new QLabel(this);
    statusLabel->setObjectName(QStringLiteral("lblStatus"));
    statusLabel->setAccessibleDescription(QStringLiteral("Preferences status"));

    auto *form = new QFormLayout;
    auto row = [&](const QString &label, QLineEdit *edit, QPushButton *choose) {
        auto *line = new QHBoxLayout;
        line->addWidget(edit, 1);
        line->addWidget(choose);
        auto *caption = new QLabel(label, this);
        caption->setBuddy(edit);
        form->addRow(caption, line);
    };
    row(QStringLiteral("&itdt:"), itdtPathEdit, ui.chooseItdtButton);
    row(QStringLiteral("&ltfs:"), ltfsPathEdit, ui.chooseLtfsButton);
    row(QStringLiteral("&mkltfs:"), mkltfsPathEdit, ui.chooseMkltfsButton);
    row(QStringLiteral("&Output folder:"), outputFolderEdit, ui.chooseOutputFolderButton);

    auto *actions = new QHBoxLayout;
    actions->addWidget(statusLabel, 1);
    actions->addWidget(ui.resetButton);
    actions->addWidget(ui.saveButton);

    auto *outer = new QVBoxLayout(this);
    outer->addLayout(form);
    outer->addStretch(1);
    outer->addLayout(actions);

    connect(ui.chooseItdtButton, &QPushButton::clicked, this, &ToolPathsPage::chooseItdt);
    connect(ui.chooseLtfsButton, &QPushButton::clicked, this, &ToolPathsPage::chooseLtfs);
    connect(ui.chooseMkltfsButton, &QPushButton::clicked, this, &ToolPathsPage::chooseMkltfs);
    connect(ui.chooseOutputFolderButton, &QPushButton::clicked, this, &ToolPathsPage::chooseOutputFolder);
    connect(ui.saveButton, &QPushButton::clicked, this, &ToolPathsPage::save);
    connect(ui.resetButton, &QPushButton::clicked, this, &ToolPathsPage::setDefaults);

    // The window takes the size the pane was laid out at.
    resize(sizeHint());
}

void ToolPathsPage::showPathsInUse()
{
    if (support.isPreferencesSet())
        loadPreferences();
    else
        setDefaults();
}

void ToolPathsPage::setDefaults()
{
    const PathDefaults defaults = pathDefaults();
    outputFolderEdit->setText(defaults.output);
    itdtPathEdit->setText(defaults.itdt);
    mkltfsPathEdit->setText(defaults.mkltfs);
    ltfsPathEdit->setText(defaults.ltfs);
}

void ToolPathsPage::loadPreferences()
{
    auto show = [](QLineEdit *field, const OptionalPath &path) {
        field->setText(path.get().value_or(NO_PATH_SELECTED));
    };
    show(itdtPathEdit, ITDT_PATH);
    show(ltfsPathEdit, LTFS_PATH);
    show(mkltfsPathEdit, MKLTFS_PATH);
    show(outputFolderEdit, OUTPUT_FOLDER);
}

void ToolPathsPage::chooseFile(QLineEdit *field)
{
    const QString chosen = support.pickFile({});
    if (!chosen.isEmpty())
        field->setText(chosen);
}

void ToolPathsPage::chooseItdt()
{
    chooseFile(itdtPathEdit);
}

void ToolPathsPage::chooseLtfs()
{
    chooseFile(ltfsPathEdit);
}

void ToolPathsPage::chooseMkltfs()
{
    chooseFile(mkltfsPathEdit);
}

void ToolPathsPage::chooseOutputFolder()
{
    const QString chosen = support.pickFolder();
    if (chosen != QStringLiteral("-1"))
        outputFolderEdit->setText(chosen);
}

void ToolPathsPage::save()
{
    // Taken exactly as typed: the operator may be setting up a host where the
    // tools are not installed yet, so nothing is checked here; the main window
    // validates the stored paths the next time it is shown.
    const std::pair<OptionalPath *, QLineEdit *> fields[] = {{&ITDT_PATH, itdtPathEdit},
                                                             {&LTFS_PATH, ltfsPathEdit},
                                                             {&MKLTFS_PATH, mkltfsPathEdit},
                                                             {&OUTPUT_FOLDER, outputFolderEdit}};
    for (const auto &[path, edit] : fields)
        path->set(edit->text());

    const std::pair<QString, QLineEdit *> keys[] = {{PreferenceKeys::itdt, itdtPathEdit},
                                                    {PreferenceKeys::ltfs, ltfsPathEdit},
                                                    {PreferenceKeys::mkltfs, mkltfsPathEdit},
                                                    {PreferenceKeys::output, outputFolderEdit}};
    bool stored = true;
    for (const auto &[key, edit] : keys)
        stored = SettingsStore::setText(key, edit->text()) && stored;

    loadPreferences();
    // A store that cannot be written (read-only home, full disk) must not pass
    // for a saved one: the paths would be gone at the next start.
    if (!stored)
        statusLabel->setText(
            QStringLiteral("Preferences could not be saved to %1 - they apply until TapeDesk quits.")
                .arg(SettingsStore::fileName()));
    else if (!createDefaultOutputFolder(outputFolderEdit->text()))
        statusLabel->setText(QStringLiteral("Preferences have been saved, but the output folder %1 could not "
                                            "be created.")
                                 .arg(outputFolderEdit->text()));
    else
        statusLabel->setText(PREFERENCES_SAVED);
    Q_EMIT saved();
}

} // namespace tapedesk
