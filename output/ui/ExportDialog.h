#pragma once

#include "output/ExportLines.h"
#include "output/ShownList.h"

#include "engine/support/Errors.h"

#include <QDialog>

#include <functional>
#include <optional>
#include <vector>

class QCheckBox;
class QComboBox;
class QListWidget;
class QListWidgetItem;
class QPlainTextEdit;
class QPushButton;

namespace kestrel::output {

// frmExport, "Export File List": writes the list a snapshot window shows to
// a text file, with the fields, order, separator and quoting the user picks,
// and previews the first lines while the user picks them. The lines
// themselves come from ExportLines; the dialog holds the controls.
//
// Loaded once (with "Comma" and quoting on) and then only shown and hidden:
// separator, quoting and numeric attributes stay as the user left them for
// the run, while the field list is made afresh for each list.
//
// Controls carry their program names as object names: "lstField",
// "cmdShift0" ("&Up"), "cmdShift2" ("&Dn"), "cboSepar", "chkQuotes",
// "chkFlags", "txtPreview", "cmdOK", "cmdCancel".
class ExportDialog : public QDialog {
    Q_OBJECT
public:
    // The save dialog's filter.
    static QString fileFilter();

    explicit ExportDialog(QWidget* parent = nullptr);
    ~ExportDialog() override;

    // Activation for a list (borrowed until the dialog hides): the field
    // list is made for it and the preview shows its first rows.
    void setList(const ShownList& list);
    // The list is gone (its window's modal showing ended): nothing refers to it.
    void clearList() { m_list = nullptr; }

    // What the dialog asks of the world, replaceable so that tests answer
    // without windows.
    // The save dialog, proposing a file (asks before replacing one); the
    // chosen path, empty when cancelled.
    std::function<QString(const QString& proposed, const QString& filter)> chooseFile;
    // An input box; nothing when cancelled.
    std::function<std::optional<QString>(const QString& prompt, const QString& title,
                                         const QString& text)>
        askText;
    std::function<void(const engine::UserMessage& message)> message;

    // The user's commands.
    // OK: asks for the file and writes every row to it, then hides the
    // dialog; a cancelled save dialog leaves it open.
    void cmdOK_Click();
    void cmdCancel_Click();
    // Up (index 0) or Dn (index 2) for the current entry.
    void cmdShift_Click(int index);

    // What the dialog holds now.
    const std::vector<ExportField>& fields() const { return m_fields; }
    ExportChoices choices() const;
    QString previewText() const;
    QListWidget* fieldList() const { return m_lstField; }
    QComboBox* separatorList() const { return m_cboSepar; }
    QCheckBox* quotesBox() const { return m_chkQuotes; }
    QCheckBox* numbersBox() const { return m_chkFlags; }
    QPushButton* okButton() const { return m_cmdOK; }

private:
    // The constructor's steps: the controls with what each runs, where they
    // sit, and the system's own dialogs behind chooseFile, askText and
    // message.
    void createControls();
    void layOutControls();
    void useStandardDialogs();
    void loadFieldList();
    void lstField_ItemCheck(QListWidgetItem* item);
    void choicesChanged();
    void rebuildPreview();

    const ShownList* m_list = nullptr;
    std::vector<ExportField> m_fields;
    // Set while the list is filled or an entry moved: checks made then ask
    // for no custom text.
    bool m_loading = false;

    QListWidget* m_lstField = nullptr;
    QPushButton* m_cmdUp = nullptr;
    QPushButton* m_cmdDown = nullptr;
    QComboBox* m_cboSepar = nullptr;
    QCheckBox* m_chkQuotes = nullptr;
    QCheckBox* m_chkFlags = nullptr;
    QPlainTextEdit* m_txtPreview = nullptr;
    QPushButton* m_cmdOK = nullptr;
    QPushButton* m_cmdCancel = nullptr;
};

} // namespace kestrel::output
