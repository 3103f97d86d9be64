// The listing is asked of the service.
#include "tools/CodecList.h"

namespace evc {
namespace tools {

int ListCodecs(std::ostream& out, std::ostream& err)
{
    (void)out;
    err << "evc-encode: --list-codecs is not available in this build\n";
    return 1;
}

}  // namespace tools
}  // namespace evc
