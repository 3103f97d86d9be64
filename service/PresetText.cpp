#include "service/PresetText.h"

#include <cctype>
#include <cstring>

namespace {

// Position just after the first occurrence of end at or after from, or the
// end of the text when there is none (an unclosed construct runs to the end).
size_t After(const std::string& text, size_t from, const char* end)
{
    const size_t at = text.find(end, from);
    return at == std::string::npos ? text.size() : at + std::strlen(end);
}

bool StartsAt(const std::string& text, size_t at, const char* prefix)
{
    return text.compare(at, std::strlen(prefix), prefix) == 0;
}

// An element starts with a letter, "_" or any byte of a multi-byte sequence;
// "</" is an end tag.
bool OpensElement(const std::string& text, size_t at)
{
    if (at >= text.size())
        return false;
    const unsigned char c = static_cast<unsigned char>(text[at]);
    return c == '/' || c == '_' || c >= 0x7F || std::isalpha(c);
}

// Past the ">" that ends a tag opened at from, skipping quoted values; sets
// selfClosing for "/>".
size_t AfterTag(const std::string& text, size_t from, bool& selfClosing)
{
    selfClosing = false;
    for (size_t i = from; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"' || c == '\'') {
            const size_t close = text.find(c, i + 1);
            if (close == std::string::npos)
                return text.size();
            i = close;
        } else if (c == '>') {
            selfClosing = i > from && text[i - 1] == '/';
            return i + 1;
        }
    }
    return text.size();
}

}  // namespace

unsigned PresetNestingDepth(const std::string& text, unsigned limit)
{
    unsigned depth = 0;
    unsigned deepest = 0;
    size_t i = 0;
    while (i < text.size() && deepest <= limit) {
        if (text[i] != '<') {
            ++i;
            continue;
        }
        if (StartsAt(text, i, "<!--")) {
            i = After(text, i + 4, "-->");
        } else if (StartsAt(text, i, "<![CDATA[")) {
            i = After(text, i + 9, "]]>");
        } else if (!OpensElement(text, i + 1)) {
            // Declarations, "<!...>" and anything else the parser keeps as an
            // unknown node end at the first ">" at the latest.
            i = After(text, i + 1, ">");
        } else if (StartsAt(text, i, "</")) {
            depth = depth > 0 ? depth - 1 : 0;
            i = After(text, i + 2, ">");
        } else {
            bool selfClosing = false;
            i = AfterTag(text, i + 1, selfClosing);
            if (!selfClosing) {
                ++depth;
                deepest = depth > deepest ? depth : deepest;
            } else {
                deepest = depth + 1 > deepest ? depth + 1 : deepest;
            }
        }
    }
    return deepest;
}

std::string PresetParserText(const std::string& text)
{
    // A lead byte announces at most three more bytes.
    std::string padded = text;
    padded.append(4, '\0');
    return padded;
}
