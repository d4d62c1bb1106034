#include "ShownList.h"

#include "engine/support/OleDate.h"
#include "engine/support/TextFormats.h"
#include "listing/Twips.h"

#include <QFileInfo>
#include <QFontMetrics>

#include <algorithm>

namespace kestrel::output {

bool holdsDifferences(engine::ShowMode mode) {
    return mode != engine::ShowMode::None && mode != engine::ShowMode::OnlyHere;
}

QString proposedExportName(const QString& snapshotFile) {
    QString name = QFileInfo(snapshotFile).fileName();
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot >= 0)
        name.truncate(dot);
    return name + QStringLiteral(".txt");
}

int shownColumnPixels(int column, const engine::GridLayout& layout, const QFont& font, double dpi) {
    const int twips = engine::gridColumnTwips(column, layout);
    if (twips == 0)
        return 0;
    const int designed = engine::pixelsFromTwips(twips, dpi);
    const QFontMetrics metrics(font);
    const int padding = metrics.horizontalAdvance(QLatin1Char('0')) * 2;
    const auto fits = [&](const QString& sample) {
        return metrics.horizontalAdvance(sample) + padding;
    };
    if (column == engine::SizeColumn)
        return std::max(designed, fits(engine::formatGrouped(8888888888.0)));
    if (column == engine::ModifiedColumn)
        return std::max(designed, fits(engine::modifiedText(
                                      engine::oleDateFromParts(2028, 12, 28, 22, 58, 58))));
    if (column == engine::FingerprintColumn)
        return std::max(designed, fits(QString(32, QLatin1Char('d'))));
    if (column == engine::PermissionsColumn)
        return std::max(
            {designed, fits(QStringLiteral("drwxrwxrwx")), fits(engine::gridHeaderText(column))});
    return designed;
}

std::array<int, ShownColumnCount> shownColumnTwips(const engine::GridLayout& layout,
                                                   const QFont& font, double dpi) {
    std::array<int, ShownColumnCount> twips{};
    for (int column = 0; column < ShownColumnCount; ++column)
        twips[size_t(column)] =
            engine::twipsFromPixels(shownColumnPixels(column, layout, font, dpi), dpi);
    return twips;
}

} // namespace kestrel::output
