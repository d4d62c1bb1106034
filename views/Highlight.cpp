#include "Highlight.h"

#include <QBrush>

#include <cmath>

namespace kestrel::views {

namespace {

// The relative luminance of a colour, as the accessibility guidelines
// measure it for contrast.
double luminance(const QColor& c) {
    const auto channel = [](double v) {
        return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(c.redF()) + 0.7152 * channel(c.greenF()) +
           0.0722 * channel(c.blueF());
}

} // namespace

HighlightColours HighlightColours::from(const settings::Options& options) {
    return {colourOf(options.changedColour()), colourOf(options.deletedColour())};
}

QColor colourOf(settings::Rgb rgb) {
    return QColor(int((rgb >> 16) & 0xff), int((rgb >> 8) & 0xff), int(rgb & 0xff));
}

QColor contrastingText(const QColor& background) {
    const double l = luminance(background);
    // Contrast ratios against black and white; the larger wins.
    return (l + 0.05) / 0.05 >= 1.05 / (l + 0.05) ? QColor(Qt::black) : QColor(Qt::white);
}

QVariant highlightForeground(engine::Highlight highlight, const HighlightColours& colours) {
    switch (highlight) {
    case engine::Highlight::Deleted:
        return QBrush(colours.deleted);
    case engine::Highlight::Changed:
        return QBrush(contrastingText(colours.changed));
    case engine::Highlight::None:
        break;
    }
    return {};
}

QVariant highlightBackground(engine::Highlight highlight, const HighlightColours& colours) {
    if (highlight == engine::Highlight::Changed)
        return QBrush(colours.changed);
    return {};
}

} // namespace kestrel::views
