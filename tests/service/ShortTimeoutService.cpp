// evc-service with a command time-out of one second, so that tests can see the
// time-out path without waiting five minutes. Test builds only.
#include "service/ServiceEntry.h"

int main(int argc, char* argv[])
{
    TArgumentMap arguments = ZKMakeArgumentMap(argc, argv);
    return RunServiceEntry(arguments, 1);
}
