// evc-service with a command time-out of one second and a lock wait limit of
// half a second, so that tests can see those paths without waiting long. Test
// builds only.
#include "service/ServiceEntry.h"

int main(int argc, char* argv[])
{
    TArgumentMap arguments = ZKMakeArgumentMap(argc, argv);
    return RunServiceEntry(arguments, 1, 500);
}
