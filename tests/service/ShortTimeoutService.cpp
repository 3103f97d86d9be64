// evc-service with a command time-out of one second, so that tests can see the
// time-out path without waiting five minutes. Test builds only.
#include <cstring>

#include "service/ServiceEntry.h"

int main(int argc, char* argv[])
{
    TArgumentMap arguments;
    for (int i = 0; i < argc; ++i)
        arguments[static_cast<unsigned int>(i)] = std::string(argv[i], std::strlen(argv[i]));
    return RunServiceEntry(arguments, 1);
}
