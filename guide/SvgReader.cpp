// The SVG guide reader: the built-in guides, and the first path element of a guide file.
//
// Deliberately small: no XML parser, only a scan for the first tag that contains "path", its attributes
// taken by a simple pattern, the drawing commands M, L, C and Q (absolute and relative) and the transforms
// translate and matrix. Everything else in the file is passed over. A malformed number in the path data
// raises the standard conversion error (std::invalid_argument or std::out_of_range) to the caller.
#include <algorithm>
#include <cstddef>
#include <locale>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "guide/PathParser.h"
#include "storage/FileHelpers.h"
#include "storage/NumberText.h"

namespace {

// The standard matcher recurses once per character it steps over and slows down badly on long runs of
// letters: past a few thousand bytes it can overflow the stack or take seconds. Tags longer than this are
// read by MatchAttributesLinear, which gives the same matches in one pass.
constexpr std::size_t kPatternTagLimit = 1024;

// name="value": ASCII letters, then a double-quoted value on one line. Built once, shared by all threads.
const std::regex& AttributePattern() {
    static const std::regex pattern("([a-zA-Z]*?)=\\\"(.*?)\\\"", std::regex::ECMAScript);
    return pattern;
}

bool IsAsciiLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// The matches of AttributePattern, found left to right without backtracking. For each "=" the name is
// the run of letters right before it; a match needs a '"' right after the "=" and a closing '"' before
// the next line break ('.' in the pattern stops at LF and CR). A failed "=" is skipped and the search
// goes on after it, as the pattern's own search would.
void MatchAttributesLinear(const std::string& text, std::map<std::string, std::string>& attributes) {
    std::size_t from = 0;
    while (from < text.size()) {
        const std::size_t equals = text.find('=', from);
        if (equals == std::string::npos) return;
        std::size_t nameStart = equals;
        while (nameStart > from && IsAsciiLetter(text[nameStart - 1]))
            --nameStart;
        from = equals + 1;
        if (equals + 1 >= text.size() || text[equals + 1] != '"') continue;
        const std::size_t valueStart = equals + 2;
        const std::size_t valueEnd = text.find_first_of("\"\n\r", valueStart);
        if (valueEnd == std::string::npos || text[valueEnd] != '"') continue;
        attributes[text.substr(nameStart, equals - nameStart)] =
            text.substr(valueStart, valueEnd - valueStart);
        from = valueEnd + 1;
    }
}

// What a drawing command makes: its segment type and how many points it reads.
struct CommandShape {
    int32_t type;
    int points;
};

std::optional<CommandShape> ShapeOfCommand(char command) {
    switch (command & ~0x20) {  // upper case
        case 'M':
            return CommandShape{PathSegment::kMoveTo, 1};
        case 'L':
            return CommandShape{PathSegment::kLineTo, 1};
        case 'C':
            return CommandShape{PathSegment::kCubic, 3};
        case 'Q':
            return CommandShape{PathSegment::kQuadratic, 2};
        default:
            return std::nullopt;
    }
}

void SkipSpacesAndCommas(const std::string& data, std::size_t& i) {
    while (i < data.size() && (data[i] == ' ' || data[i] == ','))
        ++i;
}

// Reads one number of the path data at i: an optional sign, a run of digits and points, an optional
// exponent. The run is converted like std::stod (longest valid prefix, "1.2.3" gives 1.2) but always
// with "." as the decimal point; i moves past the whole run. Throws as std::stod does.
double ReadPathNumber(const std::string& data, std::size_t& i) {
    SkipSpacesAndCommas(data, i);
    const std::size_t start = i;
    if (i < data.size() && (data[i] == '+' || data[i] == '-')) ++i;
    while (i < data.size() && (IsDigit(data[i]) || data[i] == '.'))
        ++i;
    if (i < data.size() && (data[i] == 'e' || data[i] == 'E')) {
        ++i;
        if (i < data.size() && (data[i] == '+' || data[i] == '-')) ++i;
        while (i < data.size() && IsDigit(data[i]))
            ++i;
    }
    double value = 0;
    const std::errc error = ReadLeadingDouble(std::string_view(data).substr(start, i - start), value);
    if (error == std::errc::result_out_of_range) throw std::out_of_range("stod");
    if (error != std::errc{}) throw std::invalid_argument("stod");
    return value;
}

// The text between the first "(" and the first ")" of the whole value; when that ")" comes first, the
// text after the "(" to the end.
std::optional<std::string> FirstParenthesised(const std::string& value) {
    const std::size_t open = value.find('(');
    const std::size_t close = value.find(')');
    if (open == std::string::npos || close == std::string::npos) return std::nullopt;
    if (close < open) return value.substr(open + 1);
    return value.substr(open + 1, close - open - 1);
}

}  // namespace

PathParser::PathParser(const std::u16string& name) {
    LoadFromFile(name);
}

void PathParser::LoadFromFile(const std::u16string& name) {
    if (name == u":S") {
        CreateLine();
        return;
    }
    if (name == u":C") {
        CreateCurve();
        return;
    }
    std::string text;
    if (ReadAllTextWithin(GetPluginDataPath(name, false), kMaxGuideBytes, text) == ReadResult::kRead &&
        !text.empty() && Parse(text) && IsWithinGuideLimits())
        return;
    // A missing, empty, pathless or oversized file silently becomes the straight guide.
    CreateLine();
}

void PathParser::CreateLine() {
    m_segments.clear();
    m_segments.push_back({PathSegment::kMoveTo, {{0, 10}}});
    m_segments.push_back({PathSegment::kLineTo, {{100, 10}}});
    m_width = 100;
}

void PathParser::CreateCurve() {
    m_segments.clear();
    m_segments.push_back({PathSegment::kMoveTo, {{0, 50}}});
    m_segments.push_back({PathSegment::kQuadratic, {{50, 0}, {100, 50}}});
    m_width = 100;
}

bool PathParser::Parse(const std::string& text) {
    m_segments.clear();
    std::size_t from = 0;
    while (true) {
        const std::size_t open = text.find('<', from);
        if (open == std::string::npos) break;
        const std::size_t close = text.find('>', open + 1);
        if (close == std::string::npos) break;
        // Comments and every other element count too: the first tag with "path" anywhere in it is read.
        const std::string tagText = text.substr(open + 1, close - open - 1);
        if (tagText.find("path") != std::string::npos) {
            ParsePath(tagText);
            break;
        }
        from = close + 1;
    }
    return !m_segments.empty();
}

bool PathParser::IsWithinGuideLimits() const {
    // Flattened on the side: the pen starts where a fresh path's would.
    PathParser pieces;
    pieces.BeginPieces(false);
    for (const PathSegment& segment : m_segments) {
        pieces.AddPieces(segment.type, segment.points.data(), segment.points.size());
        if (pieces.m_lines.size() > kMaxGuidePieces) return false;
    }
    return true;
}

std::map<std::string, std::string> PathParser::ParseAttributes(const std::string& tagText) {
    std::map<std::string, std::string> attributes;
    if (tagText.size() > kPatternTagLimit) {
        MatchAttributesLinear(tagText, attributes);
        return attributes;
    }
    const std::regex& pattern = AttributePattern();
    for (std::sregex_iterator match(tagText.begin(), tagText.end(), pattern), end; match != end; ++match) {
        attributes[(*match)[1].str()] = (*match)[2].str();
    }
    return attributes;
}

void PathParser::ParsePath(const std::string& tagText) {
    const std::map<std::string, std::string> attributes = ParseAttributes(tagText);
    Transform m;
    if (const auto transform = attributes.find("transform"); transform != attributes.end()) {
        m = ParseTransform(transform->second);
    }
    const auto found = attributes.find("d");
    if (found == attributes.end()) return;
    const std::string& data = found->second;
    if (data.empty()) {
        m_width = 0;
        return;
    }

    double penX = 0, penY = 0;  // untransformed, absolute
    double minX = 0, maxX = 0;
    std::size_t i = 0;
    while (true) {
        SkipSpacesAndCommas(data, i);
        if (i >= data.size()) break;
        const char command = data[i++];
        // Stray characters, including the arguments of ignored commands, are passed over one at a time.
        if (!IsAsciiLetter(command)) continue;
        const bool relative = command >= 'a';
        const std::optional<CommandShape> shape = ShapeOfCommand(command);
        if (!shape) continue;  // H, V, S, T, A, Z and the rest: nothing
        PathSegment segment;
        segment.type = shape->type;
        double x = 0, y = 0;
        for (int k = 0; k < shape->points; ++k) {
            x = ReadPathNumber(data, i);
            y = ReadPathNumber(data, i);
            if (relative) {
                x += penX;
                y += penY;
            }
            // Every point of the first command restarts the extent; later ones widen it.
            if (m_segments.empty()) {
                minX = maxX = x;
            } else {
                minX = std::min(minX, x);
                maxX = std::max(maxX, x);
            }
            segment.points.push_back(ApplyTransform(m, {x, y}));
        }
        penX = x;
        penY = y;
        m_segments.push_back(std::move(segment));
    }
    m_width = maxX - minX;
}

Transform PathParser::ParseTransform(const std::string& value) {
    Transform m;
    if (value.size() < 6) return m;
    const bool matrix = value.find("matrix") != std::string::npos;
    if (!matrix && (value.size() < 9 || value.find("translate") == std::string::npos)) return m;
    // The numbers come from the first parenthesised group, whichever function it belongs to.
    const std::optional<std::string> arguments = FirstParenthesised(value);
    if (!arguments) return m;
    // White-space separated only: extraction stops at a comma, the failing field becomes 0 and the rest
    // keep their identity values. The classic locale keeps "." the decimal point.
    std::istringstream in(*arguments);
    in.imbue(std::locale::classic());
    if (matrix) {
        in >> m.a >> m.b >> m.c >> m.d >> m.e >> m.f;
    } else {
        in >> m.e >> m.f;
    }
    return m;
}

PathPoint PathParser::ApplyTransform(const Transform& m, const PathPoint& p) {
    return {m.a * p.x + m.c * p.y + m.e, m.b * p.x + m.d * p.y + m.f};
}
