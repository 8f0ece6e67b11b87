#include "net/sockets/TLSSocketBIO.h"

#include <cstdint>

namespace kqlib {

namespace {

platform::SocketHandle HandleOf(BIO* bio)
{
    return static_cast<platform::SocketHandle>(reinterpret_cast<std::uintptr_t>(BIO_get_data(bio)));
}

int Write(BIO* bio, const char* data, std::size_t size, std::size_t* written)
{
    BIO_clear_retry_flags(bio);
    std::size_t moved = size;
    const auto result = platform::SendSocket(HandleOf(bio), reinterpret_cast<const unsigned char*>(data), moved);
    *written = moved;
    if (result == platform::IoResult::WOULD_BLOCK)
        BIO_set_retry_write(bio);
    return result == platform::IoResult::DONE ? 1 : 0;
}

int Read(BIO* bio, char* buffer, std::size_t size, std::size_t* got)
{
    BIO_clear_retry_flags(bio);
    std::size_t moved = size;
    const auto result = platform::RecvSocket(HandleOf(bio), reinterpret_cast<unsigned char*>(buffer), moved);
    *got = moved;
    if (result == platform::IoResult::WOULD_BLOCK)
        BIO_set_retry_read(bio);
    else if (result == platform::IoResult::CLOSED)
        BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
    return result == platform::IoResult::DONE ? 1 : 0;
}

long Control(BIO* bio, int command, long, void*)
{
    switch (command) {
    case BIO_CTRL_FLUSH:
    case BIO_CTRL_DUP:
        return 1;
    case BIO_CTRL_EOF:
        return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
    default:
        return 0;
    }
}

BIO_METHOD* MakeMethod()
{
    BIO_METHOD* method = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "kqnet socket");
    if (method != nullptr && BIO_meth_set_write_ex(method, Write) == 1 && BIO_meth_set_read_ex(method, Read) == 1 &&
        BIO_meth_set_ctrl(method, Control) == 1)
        return method;
    BIO_meth_free(method);
    return nullptr;
}

} // namespace

BIO* NewSocketBIO(platform::SocketHandle handle)
{
    // Made once and kept for the life of the process: connections may outlive every static object.
    static BIO_METHOD* const method = MakeMethod();
    BIO* bio = method != nullptr ? BIO_new(method) : nullptr;
    if (bio == nullptr)
        return nullptr;
    BIO_set_data(bio, reinterpret_cast<void*>(static_cast<std::uintptr_t>(handle)));
    BIO_set_init(bio, 1);
    return bio;
}

} // namespace kqlib
