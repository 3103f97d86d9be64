// evc-service clientShmKey clientProcessId clientApplicationName
// evc-service --list-codecs [appFolder [hostBundle]]
#include "service/ServiceEntry.h"

int main(int argc, char* argv[])
{
    TArgumentMap arguments = ZKMakeArgumentMap(argc, argv);
    return main_utf8(arguments);
}
