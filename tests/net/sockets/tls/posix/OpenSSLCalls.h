// OpenSSLCalls: sees calls to OpenSSL, and makes one fail.
#pragma once

#include <cstddef>
#include <functional>

namespace kqlib::test {

/// The test program holds functions of the same names, which go before those of OpenSSL. One thread at a time.
class OpenSSLCalls
{
public:
    /// Called with every piece of memory that is to be overwritten, before it is; null: nobody is.
    static void sSetOnCleanse(std::function<void(const unsigned char* bytes, std::size_t size)> onCleanse);
    /// The next so many calls for the library's kind of BIO find no memory.
    static void sFailMethods(int times);
    /// The call after so many others that writes bytes over TLS fails, and leaves an error in OpenSSL's queue.
    static void sFailWriteAfter(int others);
    /// How often the kind of BIO was asked for, failures included.
    static int sGetMethodCount();
};

} // namespace kqlib::test
