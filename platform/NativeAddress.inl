// The part of Sockets.cpp that both halves share: between endpoints and the system's address structures, which are
// spelt alike on both systems. Included by the two Sockets.cpp alone, after the system's socket headers.

namespace kqlib::platform {

void ToNative(const Endpoint& from, sockaddr_in& to)
{
    to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(from.port);
    std::memcpy(&to.sin_addr, from.bytes, sizeof(to.sin_addr));
}

void ToNative(const Endpoint& from, sockaddr_in6& to)
{
    to = {};
    to.sin6_family = AF_INET6;
    to.sin6_port = htons(from.port);
    std::memcpy(&to.sin6_addr, from.bytes, sizeof(to.sin6_addr));
}

Endpoint FromNative(const sockaddr_in& from)
{
    Endpoint result;
    result.family = Family::IP4;
    result.port = ntohs(from.sin_port);
    std::memcpy(result.bytes, &from.sin_addr, sizeof(from.sin_addr));
    return result;
}

Endpoint FromNative(const sockaddr_in6& from)
{
    Endpoint result;
    result.family = Family::IP6;
    result.port = ntohs(from.sin6_port);
    std::memcpy(result.bytes, &from.sin6_addr, sizeof(from.sin6_addr));
    return result;
}

namespace {

/// An address of either family with its length, in the form that the system's calls take and give.
struct NativeAddress
{
    NativeAddress() = default;
    explicit NativeAddress(const Endpoint& from)
    {
        if (from.family == Family::IP4)
            xStore<sockaddr_in>(from);
        else
            xStore<sockaddr_in6>(from);
    }

    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }

    /// Takes a whole IPv4 address into out; anything else leaves out as it is and gives false.
    bool GetIP4(Endpoint& out) const
    {
        if (storage.ss_family != AF_INET || length != sizeof(sockaddr_in))
            return false;
        out = xLoad<sockaddr_in>();
        return true;
    }

    /// The address, of either family.
    Endpoint GetEndpoint() const
    {
        return storage.ss_family == AF_INET6 ? xLoad<sockaddr_in6>() : xLoad<sockaddr_in>();
    }

    sockaddr_storage storage = {};
    socklen_t length = sizeof(storage);

private:
    template <class NATIVE> void xStore(const Endpoint& from)
    {
        NATIVE native;
        ToNative(from, native);
        length = sizeof(native);
        std::memcpy(&storage, &native, sizeof(native));
    }

    template <class NATIVE> Endpoint xLoad() const
    {
        NATIVE native;
        std::memcpy(&native, &storage, sizeof(native));
        return FromNative(native);
    }
};

} // namespace

} // namespace kqlib::platform
