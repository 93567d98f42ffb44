#include "launcher/message_keys.h"

namespace bwk {

namespace {

constexpr MessageKey kMessages[] = {
    {"AppleJavaMinVersionError",
     {"the minimum runtime version (bwk.minVersion)", "the application name (CFBundleName)"}},
    {"fenmo.InternalError", {"a detail text", nullptr}},
    {"NonWritablePackDir", {nullptr, nullptr}},
    {"WizardCaption", {nullptr, nullptr}},
    {"PrepareInstaller", {"the application name (CFBundleName)", nullptr}},
    {"ButtonCancel", {nullptr, nullptr}},
    {"MacMenuServices", {nullptr, nullptr}},
    {"MacMenuHide", {"the application name", nullptr}},
    {"MacMenuHideOthers", {nullptr, nullptr}},
    {"MacMenuShowAll", {nullptr, nullptr}},
    {"MacMenuQuit", {"the application name", nullptr}},
};

}  // namespace

std::span<const MessageKey> messageKeys() { return kMessages; }

const MessageKey* findMessageKey(std::string_view name) {
  for (const MessageKey& key : kMessages)
    if (name == key.name) return &key;
  return nullptr;
}

}  // namespace bwk
