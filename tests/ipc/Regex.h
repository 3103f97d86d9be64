// Whole-text matching against POSIX extended regular expressions, for error texts and generated
// names (std::regex draws false uninitialised-use warnings from gcc under the sanitizers).
#pragma once

#include <regex.h>

#include <string>

namespace evctest {

inline bool Matches(const std::string& text, const std::string& pattern)
{
    regex_t compiled;
    if (regcomp(&compiled, ("^(" + pattern + ")$").c_str(), REG_EXTENDED | REG_NOSUB) != 0)
        return false;
    const bool matched = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return matched;
}

// The text with every operator of the expression language escaped.
inline std::string Escape(const std::string& text)
{
    std::string escaped;
    for (char c : text)
        escaped += (std::string(".^$|()[]{}*+?\\").find(c) != std::string::npos ? "\\" : "") + std::string(1, c);
    return escaped;
}

}  // namespace evctest
