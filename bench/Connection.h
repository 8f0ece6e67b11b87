// A blocking connection for the measuring programs, plain or with TLS by the very calls of OpenSSL that the library
// makes. Linux only.
#pragma once

#include "bench/BareSockets.h"

#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <sys/types.h>
#include <utility>

namespace bench {

/// Owns the socket. One thread at a time. A connection that could not be made is not open.
class Connection
{
public:
    explicit Connection(int socket)
        : m_socket(socket)
    {
    }
    ~Connection()
    {
        if (m_socket >= 0)
            ::close(m_socket);
    }
    Connection(Connection&& other) noexcept
        : m_socket(std::exchange(other.m_socket, -1))
        , m_context(std::move(other.m_context))
        , m_ssl(std::move(other.m_ssl))
    {
    }
    Connection& operator=(Connection&&) = delete;

    bool IsOpen() const { return m_socket >= 0; }
    int Socket() const { return m_socket; }

    /// The server's handshake; certificate and key are read anew, as the library does for each connection.
    bool Accept(const std::string& certFile, const std::string& keyFile)
    {
        m_context.reset(SSL_CTX_new(TLS_server_method()));
        return SSL_CTX_set_num_tickets(m_context.get(), 0) == 1 &&
               SSL_CTX_set_cipher_list(m_context.get(), "HIGH:MEDIUM:@STRENGTH") == 1 &&
               SSL_CTX_use_certificate_chain_file(m_context.get(), certFile.c_str()) == 1 &&
               SSL_CTX_use_PrivateKey_file(m_context.get(), keyFile.c_str(), SSL_FILETYPE_PEM) == 1 &&
               SSL_CTX_check_private_key(m_context.get()) == 1 && xStart() && SSL_accept(m_ssl.get()) == 1;
    }
    /// The client's handshake.
    bool Connect()
    {
        m_context.reset(SSL_CTX_new(TLS_client_method()));
        return xStart() && SSL_connect(m_ssl.get()) == 1;
    }

    /// As recv: 0 or less at the end.
    ssize_t Recv(char* buffer, std::size_t size)
    {
        return m_ssl ? SSL_read(m_ssl.get(), buffer, static_cast<int>(size)) : ::recv(m_socket, buffer, size, 0);
    }
    bool SendAll(const char* data, std::size_t size)
    {
        while (size > 0) {
            const ssize_t sent = m_ssl ? SSL_write(m_ssl.get(), data, static_cast<int>(size))
                                       : ::send(m_socket, data, size, MSG_NOSIGNAL);
            if (sent <= 0)
                return false;
            data += sent;
            size -= static_cast<std::size_t>(sent);
        }
        return true;
    }
    /// Says farewell over TLS, without waiting for the other's.
    void End()
    {
        if (m_ssl)
            SSL_shutdown(m_ssl.get());
    }

private:
    bool xStart()
    {
        m_ssl.reset(SSL_new(m_context.get()));
        return m_ssl && SSL_set_fd(m_ssl.get(), m_socket) == 1;
    }

    struct Free
    {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
        void operator()(SSL* ssl) const { SSL_free(ssl); }
    };

    int m_socket;
    std::unique_ptr<SSL_CTX, Free> m_context;
    std::unique_ptr<SSL, Free> m_ssl;
};

} // namespace bench
