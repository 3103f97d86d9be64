// evc-inspect FILE.evcseg: prints an intermediate segment file's header and
// every frame element. Status 0: the whole file read; 1: a file that cannot
// be read or is corrupt (the elements before the fault are printed); 2: usage.
#include <cstdio>
#include <cstring>
#include <iostream>

#include "inspect/SegmentReport.h"

int main(int argc, char** argv)
{
    if (argc == 2 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0)) {
        std::cout << "usage: evc-inspect FILE.evcseg\n"
                     "Prints the segment header and every picture and audio element: times, sizes, packets.\n";
        return 0;
    }
    if (argc != 2) {
        std::cerr << "usage: evc-inspect FILE.evcseg\n";
        return 2;
    }
    const std::string problem = evc::ReportSegment(argv[1], std::cout);
    std::cout.flush();
    if (!problem.empty()) {
        std::cerr << "evc-inspect: " << argv[1] << ": " << problem << "\n";
        return 1;
    }
    return 0;
}
