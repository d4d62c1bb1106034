#include "IgnorePatterns.h"

#include "engine/model/CaseFold.h"

#include <algorithm>
#include <climits>
#include <optional>

namespace kestrel::engine {

namespace {

constexpr size_t None = std::string_view::npos;

// One code point of UTF-8 text at, with its length; a byte that does not
// start a valid sequence stands for itself, above every code point.
struct Unit {
    uint32_t value;
    size_t length;
};
constexpr uint32_t RawByte = 0x110000;

Unit unitAt(std::string_view text, size_t at) {
    const auto b = static_cast<unsigned char>(text[at]);
    if (b < 0x80)
        return {b, 1};
    const size_t length = b >= 0xF0 ? 4 : b >= 0xE0 ? 3 : b >= 0xC0 ? 2 : 0;
    if (length == 0 || at + length > text.size())
        return {RawByte + b, 1};
    uint32_t value = b & (0x7F >> length);
    for (size_t k = 1; k < length; ++k) {
        const auto c = static_cast<unsigned char>(text[at + k]);
        if ((c & 0xC0) != 0x80)
            return {RawByte + b, 1};
        value = (value << 6) | (c & 0x3F);
    }
    return {value, length};
}

// The character classes a set may name, "[[:digit:]]", for ASCII letters.
enum CharClass : uint16_t {
    Alnum = 1,
    Alpha = 2,
    Blank = 4,
    Cntrl = 8,
    Digit = 16,
    Graph = 32,
    Lower = 64,
    Print = 128,
    Punct = 256,
    Space = 512,
    Upper = 1024,
    XDigit = 2048,
};

uint16_t classNamed(std::string_view name) {
    static constexpr std::pair<std::string_view, CharClass> Names[] = {
        {"alnum", Alnum}, {"alpha", Alpha}, {"blank", Blank}, {"cntrl", Cntrl},
        {"digit", Digit}, {"graph", Graph}, {"lower", Lower}, {"print", Print},
        {"punct", Punct}, {"space", Space}, {"upper", Upper}, {"xdigit", XDigit}};
    for (const auto& [text, value] : Names)
        if (text == name)
            return value;
    return 0;
}

bool inClasses(uint32_t c, uint16_t classes) {
    if (c >= 0x80)
        return false;
    const bool upper = c >= 'A' && c <= 'Z', lower = c >= 'a' && c <= 'z';
    const bool digit = c >= '0' && c <= '9';
    const bool alpha = upper || lower;
    const bool graph = c > 0x20 && c < 0x7F;
    return ((classes & Alnum) && (alpha || digit)) || ((classes & Alpha) && alpha) ||
           ((classes & Blank) && (c == ' ' || c == '\t')) ||
           ((classes & Cntrl) && (c < 0x20 || c == 0x7F)) || ((classes & Digit) && digit) ||
           ((classes & Graph) && graph) || ((classes & Lower) && lower) ||
           ((classes & Print) && (graph || c == ' ')) ||
           ((classes & Punct) && graph && !alpha && !digit) ||
           ((classes & Space) && (c == ' ' || (c >= '\t' && c <= '\r'))) ||
           ((classes & Upper) && upper) ||
           ((classes & XDigit) && (digit || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')));
}

// A bracket expression: one character in (or, negated, not in) its ranges
// and classes.
struct CharSet {
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    uint16_t classes = 0;
    bool negated = false;

    bool contains(uint32_t c) const {
        bool in = inClasses(c, classes);
        for (size_t k = 0; !in && k < ranges.size(); ++k)
            in = c >= ranges[k].first && c <= ranges[k].second;
        return in != negated;
    }
};

struct Token {
    enum Kind : uint8_t { Literal, AnyChar, Star, Set };
    Kind kind;
    uint32_t offset = 0; // Literal: its bytes in the segment's text; Set: its index
    uint32_t length = 0;
};

// A code point folded as names are, when it folds to a single one.
uint32_t foldedUnit(uint32_t c) {
    if (c >= RawByte)
        return c;
    char bytes[4];
    size_t n = 0;
    if (c < 0x80) {
        bytes[n++] = char(c);
    } else if (c < 0x800) {
        bytes[n++] = char(0xC0 | (c >> 6));
        bytes[n++] = char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        bytes[n++] = char(0xE0 | (c >> 12));
        bytes[n++] = char(0x80 | ((c >> 6) & 0x3F));
        bytes[n++] = char(0x80 | (c & 0x3F));
    } else {
        bytes[n++] = char(0xF0 | (c >> 18));
        bytes[n++] = char(0x80 | ((c >> 12) & 0x3F));
        bytes[n++] = char(0x80 | ((c >> 6) & 0x3F));
        bytes[n++] = char(0x80 | (c & 0x3F));
    }
    const std::string folded = foldCase(std::string_view(bytes, n));
    const Unit u = unitAt(folded, 0);
    return u.length == folded.size() ? u.value : c;
}

} // namespace

// One pattern line, compiled: its "/"-separated parts, each matched against
// one name of a path (a pattern without "/" has one part, matched against
// the entry's own name).
struct IgnorePatterns::Pattern {
    struct Segment {
        // Literal: the name is text; Suffix, Prefix: "*text", "text*"; Glob:
        // the tokens; AnyDepth: "**", any number of names.
        enum Kind : uint8_t { Literal, Suffix, Prefix, Glob, AnyDepth };
        Kind kind = Literal;
        std::string text;
        std::vector<Token> tokens;
    };
    std::vector<Segment> segments;
    std::vector<CharSet> sets;
    bool negated = false;
    bool foldersOnly = false;
    bool anchored = false;
    bool anyDepth = false; // a segment matches any number of names
    int fixedSegments = 0; // the segments that match one name each

    // The byte a matching path must start with (for an anchored pattern);
    // -1 for any.
    int pathFirstByte = -1;

    void noteFirstBytes() {
        const Segment& front = segments.front();
        if (anchored && front.kind != Segment::AnyDepth && !front.tokens.empty() &&
            front.tokens.front().kind == Token::Literal)
            pathFirstByte = static_cast<unsigned char>(front.text[front.tokens.front().offset]);
    }

    // The bytes a matching name may start with, by bit; whether an empty
    // name may match. ASCII is told exactly; a byte above it may start any
    // code point and is let through.
    void noteNameStarts(uint64_t (&bytes)[4], bool& empty) const {
        const auto allow = [&](int byte) { bytes[byte >> 6] |= uint64_t(1) << (byte & 63); };
        const Segment& last = segments.back();
        const Token* token =
            last.kind == Segment::AnyDepth || last.tokens.empty() ? nullptr : &last.tokens.front();
        empty = !token || token->kind == Token::Star;
        if (token && token->kind == Token::Literal) {
            allow(static_cast<unsigned char>(last.text[token->offset]));
            return;
        }
        for (int byte = 0; byte < 256; ++byte)
            if (!token || token->kind != Token::Set || byte >= 0x80 ||
                sets[token->offset].contains(uint32_t(byte)))
                allow(byte);
    }

    // The byte a matching name must end with; -1 when it may end with any.
    int lastByte() const {
        const Segment& last = segments.back();
        if (last.kind == Segment::AnyDepth || last.tokens.empty() ||
            last.tokens.back().kind != Token::Literal)
            return -1;
        return static_cast<unsigned char>(last.text.back());
    }
};

namespace {

using Pattern = IgnorePatterns::Pattern;
using Segment = Pattern::Segment;

// Trailing blanks go unless a backslash escapes them.
std::string_view withoutTrailingBlanks(std::string_view line) {
    size_t keep = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == ' ')
            continue;
        if (line[i] == '\\' && i + 1 < line.size())
            ++i;
        keep = i + 1;
    }
    return line.substr(0, keep);
}

// Parses the bracket expression that starts at text[at] ("["); returns the
// position after its "]", or None when it does not close.
size_t parseSet(std::string_view text, size_t at, CharSet& set, bool fold, QString& problem) {
    size_t i = at + 1;
    if (i < text.size() && (text[i] == '!' || text[i] == '^')) {
        set.negated = true;
        ++i;
    }
    bool first = true;
    while (i < text.size() && (first || text[i] != ']')) {
        first = false;
        if (text[i] == '[' && i + 1 < text.size() && text[i + 1] == ':') {
            const size_t close = text.find(":]", i + 2);
            if (close != None && text.find(']', i + 2) == close + 1) {
                const uint16_t named = classNamed(text.substr(i + 2, close - i - 2));
                if (named == 0) {
                    problem = QStringLiteral("unknown character class");
                    return None;
                }
                set.classes |= fold && (named & (Upper | Lower)) ? uint16_t(Alpha) : named;
                i = close + 2;
                continue;
            }
        }
        if (text[i] == '\\' && ++i >= text.size())
            break;
        Unit low = unitAt(text, i);
        i += low.length;
        Unit high = low;
        if (i + 1 < text.size() && text[i] == '-' && text[i + 1] != ']') {
            i += 1;
            if (text[i] == '\\' && ++i >= text.size())
                break;
            high = unitAt(text, i);
            i += high.length;
        }
        if (fold) {
            low.value = foldedUnit(low.value);
            high.value = foldedUnit(high.value);
        }
        set.ranges.emplace_back(low.value, high.value);
    }
    if (i >= text.size()) {
        problem = QStringLiteral("unclosed [");
        return None;
    }
    return i + 1;
}

// The tokens of one segment, literal runs folded when fold is set. False
// with the problem when the segment cannot be compiled.
bool compileSegment(std::string_view text, Pattern& pattern, Segment& segment, bool fold,
                    QString& problem) {
    std::string literal;
    const auto endLiteral = [&] {
        if (literal.empty())
            return;
        const auto offset = uint32_t(segment.text.size());
        if (fold)
            appendFolded(segment.text, literal);
        else
            segment.text += literal;
        segment.tokens.push_back({Token::Literal, offset, uint32_t(segment.text.size() - offset)});
        literal.clear();
    };
    for (size_t i = 0; i < text.size();) {
        const char c = text[i];
        if (c == '\\') {
            if (i + 1 >= text.size()) {
                problem = QStringLiteral("ends with a lone \\");
                return false;
            }
            literal += text[i + 1];
            i += 2;
        } else if (c == '*' || c == '?') {
            endLiteral();
            const bool repeatedStar =
                c == '*' && !segment.tokens.empty() && segment.tokens.back().kind == Token::Star;
            if (!repeatedStar)
                segment.tokens.push_back({c == '*' ? Token::Star : Token::AnyChar});
            ++i;
        } else if (c == '[') {
            endLiteral();
            CharSet set;
            i = parseSet(text, i, set, fold, problem);
            if (i == None)
                return false;
            segment.tokens.push_back({Token::Set, uint32_t(pattern.sets.size())});
            pattern.sets.push_back(std::move(set));
        } else {
            literal += c;
            ++i;
        }
    }
    endLiteral();
    return true;
}

// Picks the quickest way to match a segment: most are a plain name, "*.ext"
// or "name*".
void classify(Segment& segment) {
    const std::vector<Token>& t = segment.tokens;
    const auto is = [&](size_t k, Token::Kind kind) { return k < t.size() && t[k].kind == kind; };
    if (t.size() == 1 && is(0, Token::Literal))
        segment.kind = Segment::Literal;
    else if (t.size() == 1 && is(0, Token::Star))
        segment.kind = Segment::Prefix; // any name: it starts with ""
    else if (t.size() == 2 && is(0, Token::Star) && is(1, Token::Literal))
        segment.kind = Segment::Suffix;
    else if (t.size() == 2 && is(0, Token::Literal) && is(1, Token::Star))
        segment.kind = Segment::Prefix;
    else
        segment.kind = Segment::Glob;
}

// A segment of two or more stars alone is "**" when the pattern is matched
// against paths; anywhere else stars are one "*".
bool isAnyDepth(std::string_view text) {
    return text.size() >= 2 && text.find_first_not_of('*') == None;
}

// The body of a pattern (no "!", no trailing or leading "/") cut at each
// "/" that no backslash escapes.
std::vector<std::string_view> segmentsOf(std::string_view body) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    for (size_t i = 0; i < body.size(); ++i) {
        if (body[i] == '\\') {
            ++i;
        } else if (body[i] == '/') {
            parts.push_back(body.substr(start, i - start));
            start = i + 1;
        }
    }
    parts.push_back(body.substr(start));
    return parts;
}

// Compiles one line; nothing for a blank or comment line, or one that
// cannot be compiled (problem then says why).
std::optional<Pattern> compilePattern(std::string_view line, bool fold, QString& problem) {
    if (line.empty() || line.front() == '#')
        return std::nullopt;
    std::string_view body = withoutTrailingBlanks(line);
    Pattern p;
    if (!body.empty() && body.front() == '!') {
        p.negated = true;
        body.remove_prefix(1);
    }
    if (!body.empty() && body.back() == '/') {
        p.foldersOnly = true;
        body.remove_suffix(1);
    }
    p.anchored = body.find('/') != None;
    if (!body.empty() && body.front() == '/')
        body.remove_prefix(1);
    if (body.empty())
        return std::nullopt;
    const std::vector<std::string_view> parts =
        p.anchored ? segmentsOf(body) : std::vector<std::string_view>{body};
    for (size_t k = 0; k < parts.size(); ++k) {
        Segment segment;
        if (p.anchored && isAnyDepth(parts[k])) {
            // "a/**" matches what is inside a, not a itself: one name at
            // least, then any number.
            if (k + 1 == parts.size() && k > 0) {
                segment.tokens.push_back({Token::Star});
                classify(segment);
                p.segments.push_back(segment);
                segment = Segment();
                ++p.fixedSegments;
            }
            segment.kind = Segment::AnyDepth;
            p.anyDepth = true;
        } else {
            if (!compileSegment(parts[k], p, segment, fold, problem))
                return std::nullopt;
            classify(segment);
            ++p.fixedSegments;
        }
        p.segments.push_back(std::move(segment));
    }
    p.noteFirstBytes();
    return p;
}

// The glob of one segment against one name: stars taken as short as they
// can be, the last one lengthened when the rest does not match, which finds
// a match whenever there is one.
bool globMatches(const Segment& segment, const Pattern& pattern, std::string_view name) {
    const std::vector<Token>& tokens = segment.tokens;
    size_t t = 0, k = 0;
    size_t starToken = None, starText = 0;
    while (t < name.size()) {
        bool advanced = false;
        if (k < tokens.size()) {
            const Token& token = tokens[k];
            switch (token.kind) {
            case Token::Star:
                starToken = k++;
                starText = t;
                continue;
            case Token::Literal: {
                const std::string_view literal =
                    std::string_view(segment.text).substr(token.offset, token.length);
                if (name.substr(t, literal.size()) == literal) {
                    t += literal.size();
                    advanced = true;
                }
                break;
            }
            case Token::AnyChar:
                t += unitAt(name, t).length;
                advanced = true;
                break;
            case Token::Set: {
                const Unit u = unitAt(name, t);
                if (pattern.sets[token.offset].contains(u.value)) {
                    t += u.length;
                    advanced = true;
                }
                break;
            }
            }
        }
        if (advanced) {
            ++k;
            continue;
        }
        if (starToken == None)
            return false;
        k = starToken + 1;
        starText += unitAt(name, starText).length;
        t = starText;
    }
    while (k < tokens.size() && tokens[k].kind == Token::Star)
        ++k;
    return k == tokens.size();
}

bool segmentMatches(const Segment& segment, const Pattern& pattern, std::string_view name) {
    switch (segment.kind) {
    case Segment::Literal:
        return name == segment.text;
    case Segment::Suffix:
        return name.ends_with(std::string_view(segment.text));
    case Segment::Prefix:
        return name.starts_with(std::string_view(segment.text));
    case Segment::Glob:
        return globMatches(segment, pattern, name);
    case Segment::AnyDepth:
        return true;
    }
    return false;
}

// An anchored pattern against a whole path, name by name; "**" segments
// take any number of names, the last one lengthened when the rest fails.
bool pathMatches(const Pattern& p, std::string_view path) {
    const std::vector<Segment>& segments = p.segments;
    size_t s = 0, at = 0;
    size_t starSegment = None, starAt = 0;
    while (at <= path.size()) {
        if (s < segments.size() && segments[s].kind == Segment::AnyDepth) {
            starSegment = s++;
            starAt = at;
            continue;
        }
        size_t end = path.find('/', at);
        if (end == None)
            end = path.size();
        if (s < segments.size() && segmentMatches(segments[s], p, path.substr(at, end - at))) {
            ++s;
            at = end + 1;
            continue;
        }
        if (starSegment == None)
            return false;
        s = starSegment + 1;
        const size_t skipped = path.find('/', starAt);
        starAt = (skipped == None ? path.size() : skipped) + 1;
        at = starAt;
    }
    while (s < segments.size() && segments[s].kind == Segment::AnyDepth)
        ++s;
    return s == segments.size();
}

} // namespace

IgnorePatterns::IgnorePatterns() = default;
IgnorePatterns::~IgnorePatterns() = default;
IgnorePatterns::IgnorePatterns(const IgnorePatterns&) = default;
IgnorePatterns& IgnorePatterns::operator=(const IgnorePatterns&) = default;

IgnorePatterns::IgnorePatterns(std::string_view text, const QString& source) {
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    int number = 0;
    while (!text.empty() || number == 0) {
        ++number;
        const size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == None ? std::string_view() : text.substr(end + 1);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        QString problem;
        std::optional<Pattern> p = compilePattern(line, false, problem);
        if (!problem.isEmpty())
            m_problems << QStringLiteral("%1: line %2: %3").arg(source).arg(number).arg(problem);
        if (!p)
            continue;
        m_needsPaths |= p->anchored;
        m_patterns.push_back(std::move(*p));
        m_lines.emplace_back(line);
    }
    index();
}

void IgnorePatterns::index() {
    std::vector<std::vector<uint32_t>> lists(512);
    m_quick.assign(m_patterns.size(), Quick());
    m_deepestMatch = 0;
    for (size_t k = m_patterns.size(); k-- > 0;) {
        const Pattern& p = m_patterns[k];
        Quick& q = m_quick[k];
        p.noteNameStarts(q.firstBytes, q.emptyName);
        q.anchored = p.anchored;
        q.anyDepth = p.anyDepth;
        q.negated = p.negated;
        q.pathFirstByte = p.pathFirstByte;
        q.fixedSegments = p.fixedSegments;
        m_deepestMatch =
            !p.anchored || p.anyDepth ? INT_MAX : std::max(m_deepestMatch, p.fixedSegments);
        const int last = p.lastByte();
        const int first = last < 0 ? 0 : last, end = last < 0 ? 256 : last + 1;
        for (int folder = p.foldersOnly ? 1 : 0; folder < 2; ++folder)
            for (int byte = first; byte < end; ++byte)
                lists[size_t(folder * 256 + byte)].push_back(uint32_t(k));
    }
    m_candidates.clear();
    m_candidateStarts.assign(1, 0);
    m_filters.assign(lists.size(), Filter());
    for (size_t key = 0; key < lists.size(); ++key) {
        for (const uint32_t k : lists[key])
            noteInFilter(m_filters[key], m_quick[k]);
        m_candidates.insert(m_candidates.end(), lists[key].begin(), lists[key].end());
        m_candidateStarts.push_back(uint32_t(m_candidates.size()));
    }
}

void IgnorePatterns::noteInFilter(Filter& filter, const Quick& q) {
    if (!q.anchored) {
        for (int w = 0; w < 4; ++w)
            filter.names[w] |= q.firstBytes[w];
        filter.names[4] |= q.emptyName ? 1 : 0;
    } else if (q.pathFirstByte >= 0) {
        filter.paths[q.pathFirstByte >> 6] |= uint64_t(1) << (q.pathFirstByte & 63);
    } else {
        std::fill(std::begin(filter.paths), std::end(filter.paths), ~uint64_t(0));
    }
}

void IgnorePatterns::append(const IgnorePatterns& more) {
    const IgnorePatterns same = more.m_matching == m_matching ? more : more.forMatching(m_matching);
    m_patterns.insert(m_patterns.end(), same.m_patterns.begin(), same.m_patterns.end());
    m_lines.insert(m_lines.end(), same.m_lines.begin(), same.m_lines.end());
    m_problems << same.m_problems;
    m_needsPaths |= same.m_needsPaths;
    index();
}

IgnorePatterns IgnorePatterns::forMatching(NameMatching matching) const {
    IgnorePatterns compiled;
    compiled.m_matching = matching;
    compiled.m_problems = m_problems;
    compiled.m_needsPaths = m_needsPaths;
    compiled.m_lines = m_lines;
    QString problem;
    for (const std::string& line : m_lines)
        if (std::optional<Pattern> p =
                compilePattern(line, matching == NameMatching::IgnoreCase, problem))
            compiled.m_patterns.push_back(std::move(*p));
    compiled.index();
    return compiled;
}

bool IgnorePatterns::ignores(std::string_view path, bool folder) const {
    const size_t slash = path.rfind('/');
    return ignores(path, slash == None ? 0 : slash + 1,
                   int(std::count(path.begin(), path.end(), '/')) + 1, folder);
}

bool IgnorePatterns::ignores(std::string_view path, size_t nameStart, int names,
                             bool folder) const {
    return decide(path.substr(0, nameStart), names, path.substr(nameStart), folder,
                  [path] { return path; });
}

bool IgnorePatterns::ignoresIn(std::string_view folderPath, int names, std::string_view name,
                               bool folder, std::string& scratch) const {
    bool built = false;
    return decide(folderPath, names, name, folder, [&]() -> std::string_view {
        if (!built) {
            scratch.assign(folderPath).append(name);
            built = true;
        }
        return scratch;
    });
}

template <typename FullPath>
bool IgnorePatterns::decide(std::string_view folderPath, int names, std::string_view name,
                            bool folder, FullPath fullPath) const {
    if (m_patterns.empty())
        return false;
    const auto first = static_cast<unsigned char>(name.empty() ? 0 : name.front());
    const auto last = static_cast<unsigned char>(name.empty() ? 0 : name.back());
    const size_t key = (folder ? 256 : 0) + size_t(last);
    const int pathFirst = static_cast<unsigned char>(folderPath.empty() ? first : folderPath[0]);
    if (name.empty() ? !passes(m_filters[key], 256, folderPath.empty() ? 256 : size_t(pathFirst))
                     : !mayMatch(!folderPath.empty(),
                                 static_cast<unsigned char>(folderPath.empty() ? 0 : folderPath[0]),
                                 first, last, folder))
        return false;
    for (uint32_t c = m_candidateStarts[key], end = m_candidateStarts[key + 1]; c < end; ++c) {
        const uint32_t k = m_candidates[c];
        const Quick& q = m_quick[k];
        if (name.empty() ? !q.emptyName : !((q.firstBytes[first >> 6] >> (first & 63)) & 1))
            continue;
        bool matched = false;
        if (!q.anchored) {
            const Pattern& p = m_patterns[k];
            matched = segmentMatches(p.segments.front(), p, name);
        } else {
            if (names < q.fixedSegments || (!q.anyDepth && names != q.fixedSegments) ||
                (q.pathFirstByte >= 0 && pathFirst != q.pathFirstByte))
                continue;
            matched = pathMatches(m_patterns[k], fullPath());
        }
        if (matched)
            return !q.negated;
    }
    return false;
}

static unsigned char asciiLower(unsigned char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

std::string_view IgnoreWalk::folderPath(int depth) const {
    if (depth <= 0)
        return {};
    // A walk meets a folder before its contents; a depth met without one
    // above it has the path of the deepest folder known.
    const size_t above = std::min(size_t(depth), m_folderEnds.size());
    return std::string_view(m_folders).substr(0, above == 0 ? 0 : m_folderEnds[above - 1]);
}

void IgnoreWalk::enterFolder(int depth, std::string_view name) {
    m_folders.resize(folderPath(depth).size());
    m_folders.append(name);
    m_folders.push_back('/');
    m_folderEnds.resize(size_t(depth) + 1);
    m_folderEnds[size_t(depth)] = m_folders.size();
}

bool IgnoreWalk::ignored(int depth, std::string_view name, bool folder) {
    if (m_ignoredFolderDepth >= 0) {
        if (depth > m_ignoredFolderDepth)
            return true;
        m_ignoredFolderDepth = -1;
    }
    if (m_patterns.empty())
        return false;
    // Most entries are turned away by their first and last bytes before
    // anything else is done with the name. An ASCII byte folds on its own;
    // a folded folder name is needed for the path beneath it all the same.
    if (!name.empty() && !(m_fold && folder && m_paths)) {
        const auto first = static_cast<unsigned char>(name.front());
        const auto last = static_cast<unsigned char>(name.back());
        if ((!m_fold || (first < 0x80 && last < 0x80)) &&
            !m_patterns.mayMatch(depth > 0 && m_paths && !m_folders.empty(),
                                 static_cast<unsigned char>(m_folders.empty() ? 0 : m_folders[0]),
                                 m_fold ? asciiLower(first) : first,
                                 m_fold ? asciiLower(last) : last, folder)) {
            if (folder && m_paths)
                enterFolder(depth, name);
            return false;
        }
    }
    if (m_fold) {
        m_folded.clear();
        appendFolded(m_folded, name);
        name = m_folded;
    }
    // Without anchored patterns the path is the name alone.
    const bool ignored =
        m_paths ? m_patterns.ignoresIn(folderPath(depth), depth + 1, name, folder, m_scratch)
                : m_patterns.ignoresIn({}, 1, name, folder, m_scratch);
    if (folder) {
        if (ignored)
            m_ignoredFolderDepth = depth;
        else if (m_paths)
            enterFolder(depth, name);
    }
    return ignored;
}

} // namespace kestrel::engine
