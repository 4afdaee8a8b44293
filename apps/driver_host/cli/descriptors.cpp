#include "cli/descriptors.h"

#include <array>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// Nine are what one order for a host that has a name was seen to need.
constexpr int descriptorsNeeded = 16;

int openMost(std::array<int, descriptorsNeeded>& files)
{
    int count = 0;
    while (count < descriptorsNeeded) {
        const int file = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
        if (file < 0) {
            break;
        }
        files[std::size_t(count++)] = file;
    }
    return count;
}

int freeDescriptors()
{
    std::array<int, descriptorsNeeded> files;
    const int count = openMost(files);
    for (int i = 0; i < count; ++i) {
        ::close(files[std::size_t(i)]);
    }
    return count;
}

} // namespace

void openStandardFiles()
{
    int file = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    while (file >= 0 && file <= STDERR_FILENO) {
        file = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    }
    ::close(file);
}

QString tooFewDescriptors()
{
    const int count = freeDescriptors();
    if (count == descriptorsNeeded) {
        return {};
    }
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    return QStringLiteral("cannot begin: it needs %1 free file descriptors, and the limit of %2 "
                          "leaves %3; raise it, such as with 'ulimit -n 1024'")
        .arg(descriptorsNeeded)
        .arg(limit.rlim_cur)
        .arg(count);
}
