#include <common/write_all.h>

#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace {

// True when a failed write may be tried again: it was interrupted, or the file, which another
// program has set not to block, has room again.
bool canTryAgain(int file)
{
    if (errno == EAGAIN) {
        pollfd room{file, POLLOUT, 0};
        return ::poll(&room, 1, -1) >= 0 || errno == EINTR;
    }
    return errno == EINTR;
}

} // namespace

bool writeAll(int file, const QByteArray& bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const ssize_t written =
            ::write(file, bytes.constData() + done, size_t(bytes.size() - done));
        if (written < 0 && !canTryAgain(file)) {
            return false;
        }
        done += written < 0 ? 0 : written;
    }
    return true;
}
