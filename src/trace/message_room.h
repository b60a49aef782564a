// The memory in which messages are built, kept from one message to the next. The kernel is asked for it once, and the
// allocator does not see it come and go.
#pragma once

#include <cstddef>

namespace zel {

// Has the room for the time of one message. Who comes while another one has it gets a new room, and of two that come
// back one is kept. Any thread. Without memory data() is null and size() is 0.
class MessageRoom {
public:
    MessageRoom();
    ~MessageRoom();
    MessageRoom(const MessageRoom&) = delete;
    MessageRoom& operator=(const MessageRoom&) = delete;

    char* data() const { return bytes_; }
    size_t size() const { return bytes_ == nullptr ? 0 : kSize; }

    // Frees the room that is kept. For the end of the library, when no message is built any more.
    static void forget();

private:
    static constexpr size_t kSize = size_t{256} * 1024;  // some 500 events; only what a message needs is ever touched

    char* bytes_;
};

}  // namespace zel
