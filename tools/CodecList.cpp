// The listing is made by evc-service in a process of its own
// (evc::ListCodecs); this file only prints it.
#include "tools/CodecList.h"

#include <cstdio>
#include <exception>
#include <string>

#include "tools/OutputWriter.h"

#if __has_include("evc/CodecList.h")
#include "evc/CodecList.h"
#define EVC_HAVE_CODEC_LIST 1
#endif

namespace evc {
namespace tools {

namespace {

// A code as its four characters, e.g. 'avc1'.
std::string Letters(uint32_t code)
{
    std::string text = "'";
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char c = char((code >> shift) & 0xFF);
        text += (c >= 32 && c < 127) ? c : '?';
    }
    return text + "'";
}

}  // namespace

int ListCodecs(std::ostream& out, std::ostream& err)
{
#ifdef EVC_HAVE_CODEC_LIST
    try {
        ClientOptions options;
        options.applicationName = "evc-encode";
        for (const CodecInfo& codec : evc::ListCodecs(options)) {
            const std::string name = CodecName(codec.codec);
            out << (name.empty() ? "?" : name) << "  " << Letters(codec.manufacturer) << " " << Letters(codec.codec)
                << "  (Manufacture4cc=\"" << codec.manufacturer << "\" Codec4cc=\"" << codec.codec << "\")  "
                << codec.bundle << "\n";
            for (const SettingInfo& s : codec.settings) {
                char line[512];
                std::snprintf(line, sizeof line, "    %-13s %-18s %-13s default %-10s %s\n",
                              s.standard ? "standard" : "non-standard", s.name.c_str(),
                              s.kind.empty() ? "?" : s.kind.c_str(),
                              s.defaultValue.empty() ? "?" : s.defaultValue.c_str(), s.range.c_str());
                out << line;
            }
        }
        return 0;
    } catch (const std::exception& e) {
        err << "evc-encode: cannot list the plug-ins: " << e.what() << "\n";
        return 1;
    }
#else
    (void)out;
    (void)Letters;
    err << "evc-encode: --list-codecs needs a service that can list its plug-ins\n";
    return 1;
#endif
}

}  // namespace tools
}  // namespace evc
