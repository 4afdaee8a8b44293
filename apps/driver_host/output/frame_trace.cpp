#include "output/frame_trace.h"

#include "output/console.h"

#include <plugin_management/d_abstract_worker.h>

#include <QDateTime>

void traceFrames(DAbstractWorker& worker, const QString& device)
{
    const QString prefix = device.isEmpty() ? QString() : device + QLatin1Char(' ');
    worker.setFrameTracer([prefix](bool outgoing, const QByteArray& frame) {
        const QString time = QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz"));
        writeStandardError(QStringLiteral("%1 %2%3 %4")
                               .arg(time, prefix, QLatin1String(outgoing ? "->" : "<-"),
                                    QString::fromLatin1(frame.toHex(' '))));
    });
}
