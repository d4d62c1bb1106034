#pragma once

#include "listing/FileList.h"
#include "settings/Settings.h"

#include <QColor>
#include <QPalette>
#include <QVariant>

namespace kestrel::views {

// How the views paint the highlight colours of a comparison. The two are
// applied through different properties of a cell: an entry without
// counterpart gets the "No Match" colour as its text, a changed value the
// "Changed" colour as its background. The lists of colours fit that: the
// bright ones (yellow among them) are offered for changed values, and the
// "No Match" list uses dark green, dark cyan and brown, which read well as
// text on a light background.
struct HighlightColours {
    QColor changed;
    QColor deleted;
    // The text of entries the ignore patterns left out: greyed, half way
    // between the text and the background.
    QColor ignored;

    // The options' colours for a view whose background is base: a "No
    // Match" colour too close to it to be read (dark blue on a dark
    // background) is lightened or darkened until it can be. Ignored entries
    // are greyed from text towards base.
    static HighlightColours from(const settings::Options& options, const QColor& base,
                                 const QColor& text = QColor(Qt::black));
};

QColor colourOf(settings::Rgb rgb);
// Black or white, whichever stands out more against the background.
QColor contrastingText(const QColor& background);
// The contrast ratio of two colours, 1 (none) to 21 (black on white).
double contrastRatio(const QColor& a, const QColor& b);
// The colour a share t (0 to 1) of the way from a to b.
QColor mixed(const QColor& a, const QColor& b, double t);
// Text in a highlight colour stays at least this far from its background:
// enough for every "No Match" colour the options offer on a light
// background, so that there they show exactly as chosen.
inline constexpr double ReadableContrast = 3.0;
// The colour itself when its contrast with background reaches minimum,
// otherwise the colour moved towards white (on a dark background) or black
// (on a light one) just far enough.
QColor readableOn(const QColor& colour, const QColor& background, double minimum);

// A dark palette for the Fusion style, for desktops that ask for a dark theme.
QPalette darkPalette();

// The value of a cell's text or background role for a highlight; an
// invalid variant leaves the view's own colour.
QVariant highlightForeground(engine::Highlight highlight, const HighlightColours& colours);
QVariant highlightBackground(engine::Highlight highlight, const HighlightColours& colours);
// Bold for the name of an entry whose access calls for attention.
QVariant highlightFont(engine::Highlight highlight);

} // namespace kestrel::views
