#include "Names.h"

bool needsEscape(const std::string& name)
{
    return name.find_first_of("\\\n\r") != std::string::npos;
}

std::string escaped(const std::string& name)
{
    std::string text;
    for (const char c : name) {
        switch (c) {
            case '\\': text += "\\\\"; break;
            case '\n': text += "\\n"; break;
            case '\r': text += "\\r"; break;
            default: text += c;
        }
    }
    return text;
}

std::optional<std::string> unescaped(const std::string& text)
{
    std::string name;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            name += text[i];
            continue;
        }
        if (++i == text.size()) {
            return std::nullopt;
        }
        switch (text[i]) {
            case '\\': name += '\\'; break;
            case 'n': name += '\n'; break;
            case 'r': name += '\r'; break;
            default: return std::nullopt;
        }
    }
    return name;
}

std::string asPrinted(const std::string& name)
{
    return needsEscape(name) ? '\\' + escaped(name) : name;
}
