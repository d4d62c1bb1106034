#include "HistoryWindow.h"

#include "HistoryModels.h"

#include "engine/model/Snapshot.h"
#include "engine/support/TextFormats.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QTableView>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>

namespace kestrel::views {

namespace {

QTableView* makeTable(QAbstractItemModel* model, QWidget* parent) {
    auto* table = new QTableView(parent);
    table->setModel(model);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setWordWrap(false);
    table->verticalHeader()->hide();
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 4);
    table->horizontalHeader()->setHighlightSections(false);
    return table;
}

} // namespace

HistoryWindow::HistoryWindow(std::unique_ptr<engine::History> history,
                             const HighlightColours& colours, QWidget* parent)
    : QWidget(parent), m_history(std::move(history)),
      m_index(std::make_unique<engine::HistoryIndex>(*m_history)) {
    setAttribute(Qt::WA_DeleteOnClose);
    const engine::Snapshot* latest = m_history->latest.get();
    setWindowTitle(QStringLiteral("History of ") +
                   (latest ? engine::visibleText(latest->header.rootFolder)
                           : engine::generationName(m_history->generations.front())));

    m_generationModel = new GenerationTableModel(*m_history, this);
    m_folderModel = new HistoryFolderModel(*m_index, colours, this);
    m_fileModel = new HistoryFileModel(*m_index, colours, this);
    m_lifeModel = new LineOfLifeModel(*m_index, colours, this);

    m_generations = makeTable(m_generationModel, this);
    m_generations->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_generations->horizontalHeader()->setStretchLastSection(true);
    m_generations->resizeColumnsToContents();
    m_generations->installEventFilter(this);

    m_folders = new QTreeView(this);
    m_folders->setModel(m_folderModel);
    m_folders->setHeaderHidden(true);
    m_folders->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_folders->expand(m_folderModel->index(0, 0));

    // Sorted by a click on a heading, as the snapshot window's list is.
    m_sortedFiles = new QSortFilterProxyModel(this);
    m_sortedFiles->setSourceModel(m_fileModel);
    m_sortedFiles->setSortRole(HistoryFileModel::SortRole);
    m_files = makeTable(m_sortedFiles, this);
    m_files->setSortingEnabled(true);
    m_files->sortByColumn(0, Qt::AscendingOrder);
    m_files->setSelectionMode(QAbstractItemView::SingleSelection);
    m_life = makeTable(m_lifeModel, this);
    m_life->setSelectionMode(QAbstractItemView::NoSelection);
    m_life->horizontalHeader()->setStretchLastSection(true);
    // Permissions and owners are shown where the snapshots recorded them,
    // link targets where there are links.
    const bool access = m_history->hasAccess();
    const bool links =
        !m_history->linkTargets.empty() || (latest && !latest->access.linkTargets().empty());
    m_life->setColumnHidden(LineOfLifeModel::PermissionsColumn, !access);
    m_life->setColumnHidden(LineOfLifeModel::OwnerColumn, !access);
    m_life->setColumnHidden(LineOfLifeModel::LinkTargetColumn, !links);

    auto* right = new QSplitter(Qt::Vertical, this);
    right->addWidget(m_files);
    right->addWidget(m_life);
    right->setStretchFactor(0, 3);
    right->setStretchFactor(1, 1);
    auto* below = new QSplitter(Qt::Horizontal, this);
    below->addWidget(m_folders);
    below->addWidget(right);
    below->setStretchFactor(0, 1);
    below->setStretchFactor(1, 3);
    auto* whole = new QSplitter(Qt::Vertical, this);
    whole->addWidget(m_generations);
    whole->addWidget(below);
    whole->setStretchFactor(1, 1);
    // The generations show whole up to six of them (more scroll); the rest
    // goes to the folders and entries.
    const int shown = std::min(int(m_history->generations.size()), 6);
    const int generationsHeight = m_generations->horizontalHeader()->sizeHint().height() +
                                  shown * m_generations->verticalHeader()->defaultSectionSize() +
                                  2 * m_generations->frameWidth();
    whole->setSizes({generationsHeight, 3 * generationsHeight});
    whole->setStretchFactor(0, 0);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(whole);

    connect(m_generations->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &HistoryWindow::generationsChosen);
    connect(m_generations, &QAbstractItemView::doubleClicked, this, &HistoryWindow::compareChosen);
    connect(m_folders->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &HistoryWindow::folderChosen);
    connect(m_files->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &HistoryWindow::entryChosen);
    // The file model is reset with each folder; its selection model stays.
    connect(m_fileModel, &QAbstractItemModel::modelReset, this, &HistoryWindow::entryChosen);

    m_folders->setCurrentIndex(m_folderModel->index(0, 0));
}

HistoryWindow::~HistoryWindow() {
    // The views and models show the history and its index, which go with
    // this object's members: they go first.
    const QObjectList children = this->children();
    for (QObject* child : children)
        if (child->isWidgetType())
            delete child;
    delete m_sortedFiles;
    delete m_lifeModel;
    delete m_fileModel;
    delete m_folderModel;
    delete m_generationModel;
}

bool HistoryWindow::selectFolder(const std::string& path) {
    const auto& folders = m_index->folders();
    for (size_t f = 0; f < folders.size(); ++f) {
        if (folders[f].path != path)
            continue;
        const QModelIndex node = m_folderModel->indexOf(int32_t(f));
        m_folders->scrollTo(node);
        m_folders->setCurrentIndex(node);
        return true;
    }
    return false;
}

bool HistoryWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_generations && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
            compareChosen();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void HistoryWindow::generationsChosen() {
    // Two or more generations chosen: the folders show what changed from
    // the first to the last of them; otherwise the whole history.
    const QModelIndexList rows = m_generations->selectionModel()->selectedRows();
    int first = 0;
    int last = int(m_history->generations.size()) - 1;
    if (rows.size() >= 2) {
        const auto [low, high] = std::minmax_element(
            rows.begin(), rows.end(),
            [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
        // The changes of the first chosen generation came before it.
        first = low->row() + 1;
        last = high->row();
    }
    m_folderModel->setRange(first, last);
}

void HistoryWindow::folderChosen() {
    m_fileModel->setFolder(m_folderModel->folderOf(m_folders->currentIndex()));
    m_files->resizeColumnsToContents();
}

void HistoryWindow::entryChosen() {
    const QModelIndex current = m_sortedFiles->mapToSource(m_files->currentIndex());
    m_lifeModel->setEntry(current.isValid() ? &m_fileModel->rowAt(current.row()) : nullptr);
    m_life->resizeColumnsToContents();
}

void HistoryWindow::compareChosen() {
    // Two chosen generations, or the current one and the readable one
    // before it.
    std::vector<int> chosen;
    for (const QModelIndex& row : m_generations->selectionModel()->selectedRows())
        chosen.push_back(row.row());
    std::sort(chosen.begin(), chosen.end());
    const auto& generations = m_history->generations;
    int older = -1, newer = -1;
    if (chosen.size() == 2) {
        older = chosen[0];
        newer = chosen[1];
    } else if (const QModelIndex current = m_generations->currentIndex(); current.isValid()) {
        newer = current.row();
        for (int g = newer - 1; g >= 0 && older < 0; --g)
            if (generations[size_t(g)].readable())
                older = g;
    }
    if (older < 0 || newer < 0 || !generations[size_t(older)].readable() ||
        !generations[size_t(newer)].readable())
        return;
    Q_EMIT compareRequested(generations[size_t(older)].path, generations[size_t(newer)].path);
}

} // namespace kestrel::views
