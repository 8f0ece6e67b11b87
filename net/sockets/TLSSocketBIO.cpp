#include "net/sockets/TLSSocketBIO.h"

#include <atomic>
#include <cstdint>

namespace kqlib {

namespace {

platform::SocketHandle HandleOf(BIO* bio)
{
    return static_cast<platform::SocketHandle>(reinterpret_cast<std::uintptr_t>(BIO_get_data(bio)));
}

/// As OpenSSL's own BIOs of sockets. A 0 for bytes that found no room would make a farewell that is tried again look as
/// if it had gone out.
int ToResult(platform::IoResult result)
{
    return result == platform::IoResult::DONE ? 1 : result == platform::IoResult::CLOSED ? 0 : -1;
}

int Write(BIO* bio, const char* data, std::size_t size, std::size_t* written)
{
    BIO_clear_retry_flags(bio);
    std::size_t moved = size;
    const auto result = platform::SendSocket(HandleOf(bio), reinterpret_cast<const unsigned char*>(data), moved);
    *written = moved;
    if (result == platform::IoResult::WOULD_BLOCK)
        BIO_set_retry_write(bio);
    return ToResult(result);
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
    return ToResult(result);
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
    // Without an index of its own: nobody looks for it by its type, and once asking for one has failed, it fails for
    // good.
    BIO_METHOD* method = BIO_meth_new(BIO_TYPE_SOURCE_SINK, "kqnet socket");
    if (method != nullptr && BIO_meth_set_write_ex(method, Write) == 1 && BIO_meth_set_read_ex(method, Read) == 1 &&
        BIO_meth_set_ctrl(method, Control) == 1)
        return method;
    BIO_meth_free(method);
    return nullptr;
}

/// The one method, made at the first call that finds the memory for it and kept for the life of the process, since
/// connections may outlive every static object. Null: none this time.
BIO_METHOD* GetMethod()
{
    static std::atomic<BIO_METHOD*> shared{nullptr};
    BIO_METHOD* method = shared.load(std::memory_order_acquire);
    if (method != nullptr)
        return method;
    BIO_METHOD* const made = MakeMethod();
    if (made == nullptr || shared.compare_exchange_strong(method, made, std::memory_order_acq_rel))
        return made;
    BIO_meth_free(made); // another thread was first
    return method;
}

} // namespace

BIO* NewSocketBIO(platform::SocketHandle handle)
{
    BIO_METHOD* const method = GetMethod();
    BIO* bio = method != nullptr ? BIO_new(method) : nullptr;
    if (bio == nullptr)
        return nullptr;
    BIO_set_data(bio, reinterpret_cast<void*>(static_cast<std::uintptr_t>(handle)));
    BIO_set_init(bio, 1);
    return bio;
}

} // namespace kqlib
