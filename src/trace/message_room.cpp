#include "trace/message_room.h"

#include <atomic>
#include <cstdlib>

namespace zel {
namespace {

std::atomic<char*> g_kept{nullptr};

}  // namespace

MessageRoom::MessageRoom() : bytes_(g_kept.exchange(nullptr)) {
    if (bytes_ == nullptr) bytes_ = static_cast<char*>(malloc(kSize));
}

MessageRoom::~MessageRoom() { free(g_kept.exchange(bytes_)); }

void MessageRoom::forget() { free(g_kept.exchange(nullptr)); }

}  // namespace zel
