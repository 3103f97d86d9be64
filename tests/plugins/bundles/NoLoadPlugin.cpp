// Code that cannot be loaded: it needs a symbol nothing defines, and the
// host loads with every symbol resolved at once.
#include "evc/VideoCompressorPlugin.h"

extern "C" uint64_t evc_test_symbol_that_nothing_defines();

EVC_PLUGIN_EXPORT uint64_t QVGetNumberVideoCompressors()
{
    return evc_test_symbol_that_nothing_defines();
}
