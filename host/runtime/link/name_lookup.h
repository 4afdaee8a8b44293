#pragma once

#include <plugin_management/fast_delegate.h>

#include <QHostAddress>

#include <memory>

/// Looks a host's addresses up without holding anybody up: neither the thread that asks, nor
/// another name, nor the end of the program. A name that is being looked up already is not asked
/// for again, so a silent name server costs one thread a name.
class NameLookup
{
public:
    struct Result
    {
        QList<QHostAddress> addresses; ///< in the order in which to try them
        QString error; ///< why there are none
    };

    using Handler = fastdelegate::Delegate<void, const Result&>;

    /// \a found is called on the thread that starts a lookup.
    explicit NameLookup(const Handler& found);
    ~NameLookup();
    Q_DISABLE_COPY(NameLookup)

    /// Looks \a host up. True when that is done at once, as it is an address itself or cannot be
    /// looked up: \a result then holds what there is. Else the handler is called later, once, from
    /// the event loop.
    bool start(const QString& host, Result& result);
    /// The handler will not be called.
    void cancel();

private:
    class Receiver;
    class Pending;

    Handler m_found;
    std::unique_ptr<Receiver> m_receiver;
};
