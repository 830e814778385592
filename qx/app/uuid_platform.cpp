#include "qx/app/uuid.h"

#include "qx/base/windows.h"

#include <objbase.h>
#include <rpc.h>

#include <bit>

namespace QX {

namespace {

class RpcText {
public:
    explicit RpcText(UUID id) { UuidToStringA(&id, &text_); }
    ~RpcText() {
        if (text_ != nullptr) RpcStringFreeA(&text_);
    }
    RpcText(RpcText const&) = delete;
    RpcText& operator=(RpcText const&) = delete;

    char const* get() const { return text_ != nullptr ? reinterpret_cast<char const*>(text_) : ""; }

private:
    RPC_CSTR text_ = nullptr;
};

}  // namespace

Uuid create_uuid() {
    GUID made = {};
    CoCreateGuid(&made);
    return std::bit_cast<Uuid>(made);
}

String uuid_to_string(Uuid const& id) {
    RpcText const text(std::bit_cast<UUID>(id));
    return String(text.get());
}

Uuid uuid_from_string(String const& text) {
    UUID read = {};
    auto* const source = const_cast<char*>(text.c_str());
    UuidFromStringA(reinterpret_cast<RPC_CSTR>(source), &read);
    return std::bit_cast<Uuid>(read);
}

}  // namespace QX
