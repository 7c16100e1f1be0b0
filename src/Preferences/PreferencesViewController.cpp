#include "Preferences/PreferencesViewController.h"

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

PreferencesViewController::PreferencesViewController(QWidget *parent) : QWidget(parent)
{
    viewDidLoad();
}

void PreferencesViewController::viewDidLoad()
{
    setObjectName(QStringLiteral("PreferencesViewController"));
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

    txtITDT = field(QStringLiteral("txtITDT"), QStringLiteral("itdt program path"));
    txtLTFS = field(QStringLiteral("txtLTFS"), QStringLiteral("ltfs program path"));
    txtMK = field(QStringLiteral("txtMK"), QStringLiteral("mkltfs program path"));
    txtOutput = field(QStringLiteral("txtOutput"), QStringLiteral("Output folder path"));
    ui.btnITDT =
        button(QStringLiteral("btnITDT"), QStringLiteral("Choose…"), QStringLiteral("Choose itdt program"));
    ui.btnLTFS =
        button(QStringLiteral("btnLTFS"), QStringLiteral("Choose…"), QStringLiteral("Choose ltfs program"));
    ui.btnMK =
        button(QStringLiteral("btnMK"), QStringLiteral("Choose…"), QStringLiteral("Choose mkltfs program"));
    ui.btnOutput = button(QStringLiteral("btnOutput"), QStringLiteral("Choose…"),
                          QStringLiteral("Choose output folder"));
    ui.btnReset =
        button(QStringLiteral("btnReset"), QStringLiteral("Reset"), QStringLiteral("Reset to defaults"));
    ui.btnSave =
        button(QStringLiteral("btnSave"), QStringLiteral("Save"), QStringLiteral("Save preferences"));

    lblStatus = new QLabel(this);
    lblStatus->setObjectName(QStringLiteral("lblStatus"));
    lblStatus->setAccessibleDescription(QStringLiteral("Preferences status"));

    auto *form = new QFormLayout;
    auto row = [&](const QString &label, QLineEdit *edit, QPushButton *choose) {
        auto *line = new QHBoxLayout;
        line->addWidget(edit, 1);
        line->addWidget(choose);
        auto *caption = new QLabel(label, this);
        caption->setBuddy(edit);
        form->addRow(caption, line);
    };
    row(QStringLiteral("&itdt:"), txtITDT, ui.btnITDT);
    row(QStringLiteral("&ltfs:"), txtLTFS, ui.btnLTFS);
    row(QStringLiteral("&mkltfs:"), txtMK, ui.btnMK);
    row(QStringLiteral("&Output folder:"), txtOutput, ui.btnOutput);

    auto *actions = new QHBoxLayout;
    actions->addWidget(lblStatus, 1);
    actions->addWidget(ui.btnReset);
    actions->addWidget(ui.btnSave);

    auto *outer = new QVBoxLayout(this);
    outer->addLayout(form);
    outer->addStretch(1);
    outer->addLayout(actions);

    connect(ui.btnITDT, &QPushButton::clicked, this, [this] { btnITDT(ui.btnITDT); });
    connect(ui.btnLTFS, &QPushButton::clicked, this, [this] { btnLTFS(ui.btnLTFS); });
    connect(ui.btnMK, &QPushButton::clicked, this, [this] { btnMK(ui.btnMK); });
    connect(ui.btnOutput, &QPushButton::clicked, this, [this] { btnOutput(ui.btnOutput); });
    connect(ui.btnSave, &QPushButton::clicked, this, [this] { btnSave(ui.btnSave); });
    connect(ui.btnReset, &QPushButton::clicked, this, [this] { btnReset(ui.btnReset); });

    // The window takes the size the pane was laid out at.
    resize(sizeHint());
}

void PreferencesViewController::viewWillAppear()
{
    if (support.isPreferencesSet())
        loadPreferences();
    else
        setDefaults();
}

void PreferencesViewController::setDefaults()
{
    const PathDefaults defaults = pathDefaults();
    txtOutput->setText(defaults.output);
    txtITDT->setText(defaults.itdt);
    txtMK->setText(defaults.mkltfs);
    txtLTFS->setText(defaults.ltfs);
}

void PreferencesViewController::loadPreferences()
{
    auto show = [](QLineEdit *field, const OptionalPath &path) {
        field->setText(path.get().value_or(NO_PATH_SELECTED));
    };
    show(txtITDT, ITDT_PATH);
    show(txtLTFS, LTFS_PATH);
    show(txtMK, MKLTFS_PATH);
    show(txtOutput, OUTPUT_FOLDER);
}

void PreferencesViewController::chooseFile(QLineEdit *field)
{
    const QString chosen = support.pickFile({});
    if (!chosen.isEmpty())
        field->setText(chosen);
}

void PreferencesViewController::btnITDT(QAbstractButton *)
{
    chooseFile(txtITDT);
}

void PreferencesViewController::btnLTFS(QAbstractButton *)
{
    chooseFile(txtLTFS);
}

void PreferencesViewController::btnMK(QAbstractButton *)
{
    chooseFile(txtMK);
}

void PreferencesViewController::btnOutput(QAbstractButton *)
{
    const QString chosen = support.pickFolder();
    if (chosen != QStringLiteral("-1"))
        txtOutput->setText(chosen);
}

void PreferencesViewController::btnSave(QAbstractButton *)
{
    // Taken exactly as typed: the operator may be setting up a host where the
    // tools are not installed yet, so nothing is checked here; the main window
    // validates the stored paths the next time it is shown.
    const std::pair<OptionalPath *, QLineEdit *> fields[] = {
        {&ITDT_PATH, txtITDT}, {&LTFS_PATH, txtLTFS}, {&MKLTFS_PATH, txtMK}, {&OUTPUT_FOLDER, txtOutput}};
    for (const auto &[path, edit] : fields)
        path->set(edit->text());

    const std::pair<QString, QLineEdit *> keys[] = {{PreferenceKeys::itdt, txtITDT},
                                                    {PreferenceKeys::ltfs, txtLTFS},
                                                    {PreferenceKeys::mkltfs, txtMK},
                                                    {PreferenceKeys::output, txtOutput}};
    bool stored = true;
    for (const auto &[key, edit] : keys)
        stored = SettingsStore::setText(key, edit->text()) && stored;

    loadPreferences();
    // A store that cannot be written (read-only home, full disk) must not pass
    // for a saved one: the paths would be gone at the next start.
    if (!stored)
        lblStatus->setText(
            QStringLiteral("Preferences could not be saved to %1 - they apply until TapeDesk quits.")
                .arg(SettingsStore::fileName()));
    else if (!createDefaultOutputFolder(txtOutput->text()))
        lblStatus->setText(QStringLiteral("Preferences have been saved, but the output folder %1 could not "
                                          "be created.")
                               .arg(txtOutput->text()));
    else
        lblStatus->setText(PREFERENCES_SAVED);
    Q_EMIT saved();
}

void PreferencesViewController::btnReset(QAbstractButton *)
{
    setDefaults();
}

} // namespace tapedesk
