// evc-service clientShmKey clientProcessId clientApplicationName
#include <cstring>

#include "service/ServiceEntry.h"

int main(int argc, char* argv[])
{
    TArgumentMap arguments;
    for (int i = 0; i < argc; ++i)
        arguments[static_cast<unsigned int>(i)] = std::string(argv[i], std::strlen(argv[i]));
    return main_utf8(arguments);
}
