#include "tests/harness/stand_in.h"

#include "qx/base/windows.h"

#include <cstring>

namespace test {

namespace {

void write_slot(void** slot, void* value) {
    DWORD old = 0;
    VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &old);
    *slot = value;
    VirtualProtect(slot, sizeof *slot, old, &old);
}

void** find_slot(char* image, char const* function) {
    auto const dos = reinterpret_cast<IMAGE_DOS_HEADER*>(image);
    auto const nt = reinterpret_cast<IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
    auto const& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    auto import = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(image + directory.VirtualAddress);
    for (; import->Name; ++import) {
        auto name = reinterpret_cast<IMAGE_THUNK_DATA*>(image + import->OriginalFirstThunk);
        auto slot = reinterpret_cast<IMAGE_THUNK_DATA*>(image + import->FirstThunk);
        for (; name->u1.AddressOfData; ++name, ++slot) {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
            auto const by_name =
                reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(image + name->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<char*>(by_name->Name), function) == 0)
                return reinterpret_cast<void**>(&slot->u1.Function);
        }
    }
    return nullptr;
}

}  // namespace

StandIn::StandIn(char const* function, void* replacement) {
    auto const image = reinterpret_cast<char*>(GetModuleHandleA("QXLibs.dll"));
    slot_ = image ? find_slot(image, function) : nullptr;
    if (!slot_) return;
    original_ = *slot_;
    write_slot(slot_, replacement);
}

StandIn::~StandIn() {
    if (slot_) write_slot(slot_, original_);
}

}  // namespace test
