// Compressors and what they own live until the process ends: the service never
// deletes a compressor and keeps plug-in code loaded. In leak-checking builds,
// allocations made by plug-in code are therefore not leaks of ours; anything
// the service itself forgets is still reported.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:/Contents/Linux/\n";
}
