// evc-encode --list-codecs: the installed plug-ins, their four-character
// codes and every setting each offers. The plug-ins are loaded by another
// process, never by evc-encode itself, so one that crashes while it is
// being listed cannot take the tool down.
#pragma once

#include <ostream>

namespace evc {
namespace tools {

// Writes the list to out; problems to err. Returns the exit status.
int ListCodecs(std::ostream& out, std::ostream& err);

}  // namespace tools
}  // namespace evc
