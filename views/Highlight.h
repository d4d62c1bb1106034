#pragma once

#include "engine/FileList.h"
#include "settings/Settings.h"

#include <QColor>
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

    static HighlightColours from(const settings::Options& options);
};

QColor colourOf(settings::Rgb rgb);
// Black or white, whichever stands out more against the background.
QColor contrastingText(const QColor& background);

// The value of a cell's text or background role for a highlight; an
// invalid variant leaves the view's own colour.
QVariant highlightForeground(engine::Highlight highlight, const HighlightColours& colours);
QVariant highlightBackground(engine::Highlight highlight, const HighlightColours& colours);

} // namespace kestrel::views
