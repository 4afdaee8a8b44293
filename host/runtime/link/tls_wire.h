#pragma once

#include <runtime/link/record_bounds.h>

#include <gnutls/gnutls.h>

#include <array>

/// How GnuTLS reads and writes: one recv() for all that has arrived, and no signal when the other
/// side has gone. It never waits.
class TlsWire
{
public:
    explicit TlsWire(int descriptor) : m_descriptor(descriptor) { }
    TlsWire(const TlsWire&) = delete;
    TlsWire& operator=(const TlsWire&) = delete;

    /// \a session goes by it from here on, and must not outlive it.
    void carry(gnutls_session_t session);

    /// Fetches what has arrived, when all was handed over that had before. How many bytes, 0 when
    /// the other side has closed, -1 when there is nothing or an error().
    ssize_t fill();
    /// Some of what has arrived was not handed over.
    bool hasMore() const { return m_first < m_end; }
    /// A record has arrived in part, or was not handed over as a whole. All goes through here in
    /// order, so that is known from the records' headers wherever GnuTLS keeps a part.
    bool isWithinRecord() const { return hasMore() || m_bounds.isWithin(); }
    /// What came last was not TLS.
    bool isForeign() const { return m_bounds.isForeign(); }

    /// The last call had nothing to do.
    bool mustWait() const;
    /// Of the last call that failed, as the system has it.
    int error() const { return m_error; }

private:
    static ssize_t push(gnutls_transport_ptr_t wire, const giovec_t* parts, int count);
    static ssize_t pull(gnutls_transport_ptr_t wire, void* data, std::size_t size);
    static int pullTimeout(gnutls_transport_ptr_t wire, unsigned limitMs);

    ssize_t send(const void* data, std::size_t size);

    int m_descriptor;
    std::array<char, 4096> m_arrived; ///< off the wire, and not handed over yet
    std::size_t m_first = 0; ///< of them
    std::size_t m_end = 0;
    int m_error = 0;
    RecordBounds m_bounds; ///< of what was handed over
};
