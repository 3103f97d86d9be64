// Golden-bytes helpers.
#include "common/Golden.h"

#include <fstream>
#include <sstream>

namespace evctest {

void PutLe(Bytes& to, uint64_t value, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

Bytes Hex(const std::string& digits)
{
    Bytes bytes;
    for (size_t i = 0; i < digits.size(); ++i)
        if (digits[i] != ' ' && i + 1 < digits.size())
            bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i++, 2), nullptr, 16)));
    return bytes;
}

Bytes ReadHexFile(const std::string& path)
{
    std::ifstream in(path);
    EXPECT_TRUE(in.good()) << path;
    Bytes bytes;
    std::string line, word;
    while (std::getline(in, line)) {
        std::istringstream words(line.substr(0, line.find('#')));
        while (words >> word)
            bytes.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));
    }
    return bytes;
}

}  // namespace evctest
