#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

/// Follows the records of a TLS connection by their headers: RFC 8446, section 5.1.
class RecordBounds
{
public:
    /// The next \a size bytes of the connection.
    void pass(const char* data, std::size_t size)
    {
        while (size > 0) {
            std::size_t taken = std::min(size, m_left);
            if (taken == 0) {
                m_header[m_headerSize] = static_cast<unsigned char>(*data);
                taken = 1;
                finishHeader();
            } else {
                m_left -= taken;
            }
            data += taken;
            size -= taken;
        }
    }

    /// A part of a record has passed.
    bool isWithin() const { return m_left > 0 || m_headerSize > 0; }
    /// The last header was none of TLS.
    bool isForeign() const { return m_isForeign; }

private:
    static constexpr std::size_t headerSize = 5;

    void finishHeader()
    {
        if (++m_headerSize < headerSize) {
            return;
        }
        constexpr unsigned char majorVersion = 3; // that of SSL 3.0 and all TLS
        m_isForeign = m_header[1] != majorVersion;
        m_left = static_cast<std::size_t>(m_header[3]) * 256 + m_header[4];
        m_headerSize = 0;
    }

    std::array<unsigned char, headerSize> m_header{};
    std::size_t m_headerSize = 0; ///< bytes of a header that is not whole
    std::size_t m_left = 0; ///< bytes of a body that have not passed
    bool m_isForeign = false;
};
