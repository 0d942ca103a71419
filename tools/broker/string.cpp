// SPDX-License-Identifier: Apache-2.0
#include "broker/objects.h"

#include <cstring>

#if defined(__SANITIZE_ADDRESS__)
#define BROKER_POISONS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BROKER_POISONS 1
#endif
#endif
#ifdef BROKER_POISONS
#include <sanitizer/asan_interface.h>
#endif

namespace broker {

namespace {

// The text of a string is read without a call, so only the address sanitizer can detect that it is read after the
// release.
void forbid([[maybe_unused]] const char *text, [[maybe_unused]] size_t size)
{
#ifdef BROKER_POISONS
    __asan_poison_memory_region(text, size);
#endif
}

void permit([[maybe_unused]] const char *text, [[maybe_unused]] size_t size)
{
#ifdef BROKER_POISONS
    __asan_unpoison_memory_region(text, size);
#endif
}

CMPIString *clone(const CMPIString *self, CMPIStatus *status)
{
    const StringObject *const string = objectOf(self);
    Call call(*string, "clone", status);
    if (call.refused()) {
        return nullptr;
    }
    call.attachToNoRequest();
    return call.string(string->text() == nullptr ? std::nullopt : std::optional<std::string>(string->text()));
}

// CMPI headers differ in the const of the result.
template <class Text> Text getCharPtr(const CMPIString *self, CMPIStatus *status)
{
    Call call(*objectOf(self), "getCharPtr", status);
    return call.refused() ? nullptr : static_cast<Text>(self->hdl);
}

} // namespace

StringObject::StringObject(CMPIStringFT &table, const std::optional<std::string> &text)
{
    kind = "CMPIString";
    hdl = nullptr;
    ft = &table;
    if (text) {
        size_ = text->size() + 1;
        text_ = std::make_unique<char[]>(size_);
        std::memcpy(text_.get(), text->c_str(), size_);
        hdl = text_.get();
    }
}

StringObject::~StringObject()
{
    permit(text_.get(), size_);
}

std::string StringObject::describe() const
{
    return released || text_ == nullptr ? "" : text_.get();
}

void StringObject::dropContent()
{
    if (text_ != nullptr) {
        std::memset(text_.get(), '?', size_ - 1); // a reader in other builds gets an obviously wrong text
        forbid(text_.get(), size_);
    }
}

CMPIStringFT stringTable(int version)
{
    return {version, releaseSlot<CMPIString>, clone, getCharPtr};
}

} // namespace broker
