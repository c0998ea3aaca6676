#include "fuzz/support/Fuzzer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCapture.h"
#include "fuzz/support/Require.h"
#include "fuzz/support/TableImage.h"
#include "responder/table/ClientTable.h"

#include <memory>
#include <string>

using namespace ZNORBFUZZ;
using ZNORBRESPONDER::SharedVariables;

namespace {

void claim(SharedVariables& table, TableModel& model) {
    std::uint16_t index = 4711;
    const unsigned expected = model.claim();
    requireEqual(ZNORBRESPONDER::claimEntry(table, index), expected != TableModel::capacity,
                 "whether an entry was claimed");
    requireEqual(index, expected != TableModel::capacity ? expected : 4711U, "the entry");
    require(isSame(table, model), "the table after a claim");
}

void checkEntries(const SharedVariables& table, const TableModel& model) {
    requireEqual(ZNORBRESPONDER::boundedCount(table), model.bounded(), "number of entries");
    for (unsigned i = 0; i < model.bounded(); ++i) {
        const ZNORBRESPONDER::ClientEntry& entry = table.entries[i];
        requireEqual(ZNORBRESPONDER::isInUse(entry), model.isInUse(i), "whether it is in use");
        requireEqual(ZNORBRESPONDER::portOf(entry), model.port(i), "its port");
        requireEqual(ZNORBRESPONDER::identifierOf(entry), model.identifier(i), "its identifier");
    }
}

void checkListing(const SharedVariables& table, const TableModel& model) {
    (void)takeLog();
    ZNORBRESPONDER::listEntries(table);
    requireEqual(takeLog(), model.listing(), "the listing");
}

} // namespace

// Claims and listings over an arbitrary image of the table, which others go on writing to. The input: the
// image (TableImage.h), then up to 8 operations: "c" claims, "l" lists, and any other character changes a
// byte: its offset (two bytes) and its value.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    TableModel model(takeImage(input));
    const auto table = std::make_unique<SharedVariables>(tableOf(model.image()));
    for (unsigned i = 0; i < 8 && !input.isEmpty(); ++i) {
        const char operation = static_cast<char>(input.byte());
        if (operation == 'c') {
            claim(*table, model);
        } else if (operation == 'l') {
            checkListing(*table, model);
        } else {
            const std::size_t offset = input.word() % sizeof(SharedVariables);
            model.setNumber(offset, 1, input.byte());
            reinterpret_cast<char*>(table.get())[offset] = model.image()[offset];
        }
    }
    checkEntries(*table, model);
    require(isSame(*table, model), "the table at the end");
    return 0;
}
