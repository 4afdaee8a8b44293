#pragma once

#include <QFile>

/// Memory of this process, in kB.
namespace ProcessMemory {

inline long statusKb(const QByteArray& key)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly)) {
        return 0;
    }
    const QByteArray text = file.readAll();
    return text.mid(text.indexOf(key) + key.size()).trimmed().split(' ').first().toLong();
}

inline long residentKb() { return statusKb("VmRSS:"); }

/// The most there was, since the start or forgetPeak().
inline long peakKb() { return statusKb("VmHWM:"); }

inline void forgetPeak()
{
    QFile file(QStringLiteral("/proc/self/clear_refs"));
    if (file.open(QIODevice::WriteOnly)) {
        file.write("5");
    }
}

} // namespace ProcessMemory
