#include "Highlight.h"

#include <QBrush>
#include <QFont>

#include <cmath>

namespace kestrel::views {

namespace {

// The relative luminance of a colour, as the accessibility guidelines
// measure it for contrast.
double luminance(const QColor& c) {
    const auto channel = [](double v) {
        return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(c.redF()) + 0.7152 * channel(c.greenF()) + 0.0722 * channel(c.blueF());
}

} // namespace

HighlightColours HighlightColours::from(const settings::Options& options, const QColor& base,
                                        const QColor& text) {
    return {colourOf(options.changedColour()),
            readableOn(colourOf(options.deletedColour()), base, ReadableContrast),
            mixed(text, base, 0.5)};
}

double contrastRatio(const QColor& a, const QColor& b) {
    const double la = luminance(a), lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

QColor readableOn(const QColor& colour, const QColor& background, double minimum) {
    if (contrastRatio(colour, background) >= minimum)
        return colour;
    const QColor towards = luminance(background) < 0.5 ? QColor(Qt::white) : QColor(Qt::black);
    // Ten steps of a tenth: the nearest mix that is readable.
    for (int step = 1; step <= 10; ++step) {
        const QColor mix = mixed(colour, towards, step / 10.0);
        if (contrastRatio(mix, background) >= minimum)
            return mix;
    }
    return towards;
}

QColor mixed(const QColor& a, const QColor& b, double t) {
    return QColor::fromRgbF(float(a.redF() + (b.redF() - a.redF()) * t),
                            float(a.greenF() + (b.greenF() - a.greenF()) * t),
                            float(a.blueF() + (b.blueF() - a.blueF()) * t));
}

QPalette darkPalette() {
    QPalette p;
    const QColor window(0x2d, 0x2f, 0x33), base(0x1f, 0x21, 0x24), text(0xe8, 0xea, 0xed);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, QColor(0x9a, 0xa0, 0xa6));
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, window);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, QColor(0xff, 0x6e, 0x6e));
    p.setColor(QPalette::Light, QColor(0x4a, 0x4d, 0x52));
    p.setColor(QPalette::Midlight, QColor(0x3c, 0x3f, 0x44));
    p.setColor(QPalette::Mid, QColor(0x26, 0x28, 0x2b));
    p.setColor(QPalette::Dark, QColor(0x17, 0x18, 0x1a));
    p.setColor(QPalette::Shadow, Qt::black);
    p.setColor(QPalette::Highlight, QColor(0x2a, 0x5d, 0xab));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0x8a, 0xb4, 0xf8));
    p.setColor(QPalette::LinkVisited, QColor(0xc5, 0x8a, 0xf9));
    const QColor disabled(0x80, 0x84, 0x8a);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, disabled);
    p.setColor(QPalette::Disabled, QPalette::Highlight, QColor(0x4a, 0x4d, 0x52));
    return p;
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
    case engine::Highlight::Alert:
        return QBrush(colours.deleted);
    case engine::Highlight::Changed:
        return QBrush(contrastingText(colours.changed));
    case engine::Highlight::Ignored:
        return QBrush(colours.ignored);
    case engine::Highlight::None:
        break;
    }
    return {};
}

QVariant highlightFont(engine::Highlight highlight) {
    if (highlight != engine::Highlight::Alert)
        return {};
    QFont bold;
    bold.setBold(true);
    return bold;
}

QVariant highlightBackground(engine::Highlight highlight, const HighlightColours& colours) {
    if (highlight == engine::Highlight::Changed)
        return QBrush(colours.changed);
    return {};
}

} // namespace kestrel::views
