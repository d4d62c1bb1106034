#include "SnapshotWindow.h"

#include "EntryListModel.h"

#include "engine/OleDate.h"
#include "engine/Progress.h"
#include "engine/SnapshotFile.h"
#include "engine/TextFormats.h"

#include <QCloseEvent>
#include <QDir>
#include <QFileInfo>
#include <QHeaderView>
#include <QStyle>
#include <QTableView>
#include <QVBoxLayout>

#include <limits>

namespace kestrel::views {

using engine::MessageIcon;
using engine::UserMessage;

namespace {

// Column widths of the listing, in twips.
constexpr int NameWidth = 2700;
constexpr int NameWidthWithVersions = 2200;
constexpr int InFolderWidth = 2000;
constexpr int SizeWidth = 1200;
constexpr int ModifiedWidth = 1800;
constexpr int AttributesWidth = 1000;
constexpr int VersionWidth = 2000;

int pixels(const QWidget* widget, int twips) {
    return twips * widget->logicalDpiX() / 1440;
}

// A column's width: its designed width in twips, widened when the view's
// font needs more room for the sample text.
int columnWidth(const QTableView* view, int twips, const QString& sample) {
    const int margin =
        2 * view->style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, view) + 8;
    return std::max(pixels(view, twips), view->fontMetrics().horizontalAdvance(sample) + margin);
}

QString withSeparator(QString folder) {
    if (!folder.isEmpty() && !folder.endsWith(engine::Separator))
        folder += engine::Separator;
    return folder;
}

} // namespace

SnapshotWindow::SnapshotWindow(SnapshotHost& host, QWidget* parent)
    : QWidget(parent), m_host(host) {
    m_model = new EntryListModel(m_snapshot, this);

    m_list = new QTableView(this);
    m_list->setModel(m_model);
    m_list->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setWordWrap(false);
    m_list->setShowGrid(false);
    m_list->setAlternatingRowColors(true);
    m_list->verticalHeader()->hide();
    // Fixed row heights keep a listing of a million entries as quick as one
    // of a hundred: the view never measures a row.
    m_list->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_list->verticalHeader()->setDefaultSectionSize(m_list->fontMetrics().height() + 4);
    m_list->horizontalHeader()->setStretchLastSection(true);
    m_list->horizontalHeader()->setHighlightSections(false);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_list);

    resize(pixels(this, 9600), pixels(this, 4800));
}

SnapshotWindow::~SnapshotWindow() {
    // The listing reads the snapshot: it goes first, not with the children
    // after the snapshot member is gone.
    delete m_list;
    delete m_model;
}

void SnapshotWindow::showSnapshot() {
    m_model->reset();
    const bool versions = m_snapshot.header.versions;
    // Samples of the widest usual texts: a late date with two-digit parts,
    // a size in the gigabytes, a folder's attributes.
    const double sampleDate = engine::oleDateFromParts(2028, 12, 28, 22, 58, 58);
    m_list->setColumnWidth(EntryListModel::Name,
                           pixels(this, versions ? NameWidthWithVersions : NameWidth));
    m_list->setColumnWidth(EntryListModel::InFolder, pixels(this, InFolderWidth));
    m_list->setColumnWidth(EntryListModel::Size,
                           columnWidth(m_list, SizeWidth, engine::formatGrouped(8888888888.0)));
    m_list->setColumnWidth(EntryListModel::Modified,
                           columnWidth(m_list, ModifiedWidth, engine::modifiedText(sampleDate)));
    m_list->setColumnWidth(EntryListModel::Attributes,
                           columnWidth(m_list, AttributesWidth, QStringLiteral("R/O,Hid,Dir")));
    m_list->setColumnWidth(EntryListModel::Version,
                           columnWidth(m_list, VersionWidth, QStringLiteral(" 88.88.8888.88")));
    // Versions were not collected: the column would only ever be empty.
    m_list->setColumnHidden(EntryListModel::Version, !versions);
}

void SnapshotWindow::mnuFileSaveAs_Click() {
    if (m_host.busy())
        return;
    engine::SnapshotHeader& header = m_snapshot.header;
    const QString folder = header.fileName.isEmpty()
                               ? withSeparator(m_host.lastFolder())
                               : withSeparator(QFileInfo(header.fileName).absolutePath());
    const QString proposed =
        folder + engine::NextSnapshotName(engine::SnapshotBaseName(header.rootFolder), folder);
    const QString path = m_host.askSaveFileName(proposed);
    if (path.isEmpty())
        return;

    const QString previous = header.fileName;
    header.fileName = path;
    engine::Outcome outcome;
    {
        OperationScope operation(m_host);
        outcome = engine::SaveSnapshot(m_snapshot, m_host.progressMeter());
    }
    if (!outcome.ok) {
        // Nothing was stored under the new name: keep the old one and the mark.
        header.fileName = previous;
        if (outcome.message)
            m_host.showMessage(*outcome.message);
        return;
    }
    m_changed = false;
    // A window captioned by its file name follows the file.
    if (!previous.isEmpty() && caption() == previous)
        setCaption(path);
    m_host.setLastFolder(QFileInfo(path).absolutePath());
    m_host.AddRecent(path);
}

void SnapshotWindow::mnuFileRepeat_Click() {
    if (m_host.busy())
        return;
    if (m_number == std::numeric_limits<int16_t>::max()) {
        // Snapshot numbers are 16-bit: the next one does not exist.
        m_host.showMessage(UserMessage{QStringLiteral("Kestrel"),
                                       engine::errorText(engine::ErrorCode::Overflow),
                                       MessageIcon::Exclamation});
        return;
    }
    const engine::SnapshotHeader& header = m_snapshot.header;
    m_host.NewSnapshot(header.rootFolder, header.recurse, header.hidden, header.versions,
                       int16_t(m_number + 1));
}

void SnapshotWindow::mnuFileProps_Click() {
    if (m_host.busy())
        return;
    engine::SnapshotHeader& header = m_snapshot.header;
    const std::optional<QString> answer = m_host.askText(
        QStringLiteral("Title of Snapshot:"),
        QStringLiteral("Created ") + engine::generalDateText(header.created), header.title);
    if (!answer)
        return;
    QString title = *answer;
    qsizetype blanks = 0;
    while (blanks < title.size() && title.at(blanks) == QLatin1Char(' '))
        ++blanks;
    title.remove(0, blanks);
    if (title.isEmpty() || title.compare(header.title, Qt::CaseInsensitive) == 0)
        return;
    // A window captioned by its title shows the new one; one captioned by
    // its file name keeps that.
    if (caption() == header.title)
        setCaption(title);
    header.title = title;
    m_changed = true;
}

bool SnapshotWindow::queryUnload() {
    // The snapshot of a running save must not go away under it.
    if (m_host.busy())
        return false;
    if (!m_changed)
        return true;
    switch (
        m_host.PromptToSave(QStringLiteral("Save changes to ") + caption() + QStringLiteral("?"))) {
    case 6: // Yes: close only when the save went through.
        mnuFileSaveAs_Click();
        return !m_changed;
    case 7: // No
        return true;
    default: // Cancel, or the prompt closed through its frame
        return false;
    }
}

void SnapshotWindow::closeEvent(QCloseEvent* event) {
    if (queryUnload())
        event->accept();
    else
        event->ignore();
}

} // namespace kestrel::views
