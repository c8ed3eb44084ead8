#include "CheckList.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <system_error>

#include "Names.h"

namespace {

/// No name that the system takes makes a line longer than this, were every byte of it escaped.
const std::size_t longestLine = 64 * 1024;

/// The digest in lower case; nothing if it isn't one of that many digits.
std::optional<std::string> asDigest(std::string text, std::size_t hexLength)
{
    const auto isDigit = [](unsigned char c) { return std::isxdigit(c) != 0; };
    if (text.size() != hexLength || !std::all_of(text.begin(), text.end(), isDigit)) {
        return std::nullopt;
    }
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// "TAG (NAME) = DIGEST", from behind the tag on. The name ends at the last parenthesis.
std::optional<CheckLine> parseTagged(const std::string& rest, std::size_t hexLength)
{
    const std::size_t open = rest[0] == ' ' ? 1 : 0;
    const std::size_t close = rest.rfind(')');
    if (rest[open] != '(' || close == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t equals = rest.find_first_not_of(" \t", close + 1);
    if (equals == std::string::npos || rest[equals] != '=') {
        return std::nullopt;
    }
    const std::size_t start = rest.find_first_not_of(" \t", equals + 1);
    const auto digest = asDigest(start == std::string::npos ? "" : rest.substr(start), hexLength);
    if (!digest) {
        return std::nullopt;
    }
    return CheckLine{rest.substr(open + 1, close - open - 1), *digest};
}

/// Whether a line can be read as those before; the first one says how. Once a list's names begin
/// right after the space, so do all.
bool agrees(Spacing& spacing, const std::string& afterSpace)
{
    const bool isTyped = afterSpace.size() > 1 && (afterSpace[0] == ' ' || afterSpace[0] == '*');
    if (!isTyped && spacing == Spacing::typed) {
        return false;
    }
    if (!isTyped) {
        spacing = Spacing::plain;
    } else if (spacing == Spacing::unknown) {
        spacing = Spacing::typed;
    }
    return true;
}

/// "DIGEST  NAME", "DIGEST *NAME" or "DIGEST NAME".
std::optional<CheckLine> parsePlain(const std::string& text, std::size_t hexLength,
                                    Spacing& spacing)
{
    const auto digest = asDigest(text.substr(0, hexLength), hexLength);
    if (!digest || text.size() < hexLength + 2 ||
        (text[hexLength] != ' ' && text[hexLength] != '\t') ||
        !agrees(spacing, text.substr(hexLength + 1))) {
        return std::nullopt;
    }
    return CheckLine{text.substr(hexLength + (spacing == Spacing::typed ? 2 : 1)), *digest};
}

}  // namespace

std::optional<CheckLine> parseCheckLine(const std::string& line, const std::string& tag,
                                        std::size_t hexLength, Spacing& spacing)
{
    std::size_t start = std::min(line.find_first_not_of(" \t"), line.size());
    const bool isEscaped = line[start] == '\\';
    start += isEscaped ? 1 : 0;
    const std::string text = line.substr(start);
    const bool isTagged =
        text.compare(0, tag.size(), tag) == 0 && text.find_first_of(" (", tag.size()) == tag.size();
    std::optional<CheckLine> parsed = isTagged ? parseTagged(text.substr(tag.size()), hexLength)
                                               : parsePlain(text, hexLength, spacing);
    if (parsed && isEscaped) {
        const std::optional<std::string> name = unescaped(parsed->name);
        if (!name) {
            return std::nullopt;
        }
        parsed->name = *name;
    }
    // No file's name has a NUL in it.
    if (parsed && parsed->name.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return parsed;
}

std::string formatCheckLine(const CheckLine& line)
{
    return (needsEscape(line.name) ? "\\" : "") + line.digest + "  " + escaped(line.name) + '\n';
}

CheckList::CheckList(std::istream& list, const Digest& digest)
    : fromStandardInput(false), input(list), tag(digest.tag()), hexLength(digest.hexLength())
{
}

CheckList::CheckList(const std::string& path, const Digest& digest)
    : fromStandardInput(path == "-"),
      input(fromStandardInput ? std::cin : file),
      tag(digest.tag()),
      hexLength(digest.hexLength())
{
    if (!fromStandardInput) {
        errno = 0;
        file.open(path, std::ios::binary);
        // A directory opens, but can't be read.
        if (!file || (file.peek() == EOF && file.bad())) {
            throw std::system_error(errno != 0 ? errno : EIO, std::generic_category());
        }
        file.clear();
    }
}

bool CheckList::next(Entry& entry)
{
    entry = Entry();
    std::string line;
    while (readLine(line)) {
        ++lineNumber;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const std::optional<CheckLine> parsed = parseCheckLine(line, tag, hexLength, spacing);
        // A list that comes by standard input can't name it, too.
        if (!parsed || (fromStandardInput && parsed->name == "-")) {
            entry.improperLine = lineNumber;
            return true;
        }
        entry.path = parsed->name;
        entry.expected = parsed->digest;
        return true;
    }
    return false;
}

bool CheckList::readLine(std::string& line)
{
    line.clear();
    std::streambuf& buffer = *input.rdbuf();
    int c = buffer.sbumpc();
    if (c == EOF) {
        return false;
    }
    for (; c != EOF && c != '\n'; c = buffer.sbumpc()) {
        // One more than the longest marks the line as too long: no such line is understood.
        if (line.size() <= longestLine) {
            line += static_cast<char>(c);
        }
    }
    if (line.size() > longestLine) {
        line = "too long";
    }
    return true;
}
