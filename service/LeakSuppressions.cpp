// Compressors and what they own live until the process ends: the service never
// deletes a compressor and keeps plug-in code loaded. In leak-checking builds,
// allocations made by plug-in code are therefore not leaks of ours; anything
// the service itself forgets is still reported. The prototypes the collection
// makes are kept for the same reason; once their bundle is unloaded (tests
// that load plug-ins link these suppressions too), only the collection's frame
// still names them. libx265 forgets a few buffers of its own when an encoder
// closes (a fault of the library, not of the plug-in), reached through its
// own frames only.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:/Contents/Linux/\n"
           "leak:CPluginCollection::LoadVideoPlugin\n"
           "leak:libx265.so\n";
}
