// Loads element types shaped like the frame transport's (binary children, unsigned ints,
// nested masters, mixed lists) and the EBML header from arbitrary bytes. Every load must
// end inside the area, and whatever loaded must save again into an area of its size.

#include "ebml/EbmlTestTypes.h"

#include "ebml/ebmlDoc.h"
#include "ebml/ebmlMemoryStorage.h"

#include <cstdlib>
#include <iostream>
#include <memory>
#include <vector>

using namespace Ebml;
using namespace EbmlTest;

namespace {

void check(bool ok, const char* what)
{
    if (!ok) {
        std::cerr << "fuzz_ebml_load: " << what << std::endl;
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool quiet = [] {
        std::cerr.setstate(std::ios::failbit);  // checksum warnings are expected here
        return true;
    }();
    (void)quiet;

    ConstMemoryStorage storage(data, size);
    std::vector<std::unique_ptr<IElement>> elts;
    elts.emplace_back(new TList);
    elts.emplace_back(new TGroup);
    elts.emplace_back(new TData);
    elts.emplace_back(new EbmlDoc::THead);
    for (const uint64 bound : {uint64(size), uintMax[8]}) {
        for (auto& e : elts) {
            storage.seekTo(0);
            const uint64 consumed = e->load(storage, bound);
            check(storage.absolutePosition() <= size, "position outside the area");
            check(storage.absolutePosition() == consumed, "consumed count differs from the position");
            if (consumed > 0) {
                std::vector<uint8> area(std::size_t(e->calcSize()) + 1);
                MemoryStorage out(area.data(), area.size());
                check(bool(e->save(out)), "a loaded element does not save into its own size");
            }
            e->discardReceipts();
        }
    }
    return 0;
}
