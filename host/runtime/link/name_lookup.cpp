#include <runtime/link/name_lookup.h>

#include <QCoreApplication>
#include <QEvent>
#include <QHash>
#include <QObject>
#include <QUrl>

#include <netdb.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

namespace {

QString errorText(int error)
{
    const char* text = error == EAI_SYSTEM ? std::strerror(errno) : ::gai_strerror(error);
    return QStringLiteral("Host not found (%1)").arg(QString::fromLocal8Bit(text));
}

NameLookup::Result resolve(const QByteArray& name, int flags)
{
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = flags;
    addrinfo* all = nullptr;
    const int error = ::getaddrinfo(name.constData(), nullptr, &wanted, &all);
    if (error != 0) {
        return {{}, errorText(error)};
    }
    NameLookup::Result result;
    for (const addrinfo* one = all; one != nullptr; one = one->ai_next) {
        const QHostAddress address(one->ai_addr);
        if (!address.isNull() && !result.addresses.contains(address)) {
            result.addresses.append(address);
        }
    }
    ::freeaddrinfo(all);
    return result;
}

QByteArray encoded(const QString& host)
{
    const bool plain = std::all_of(host.cbegin(), host.cend(),
                                   [](QChar letter) { return letter.unicode() < 0x80; });
    return plain ? host.toLatin1() : QUrl::toAce(host);
}

// Nothing can end a lookup, so who waited for its thread would wait with it.
bool startDetached(void* (*run)(void*), void* argument)
{
    constexpr std::size_t stackSize = 0x40000; // 256 kB
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, stackSize);
    pthread_t thread{};
    const int error = pthread_create(&thread, &attributes, run, argument);
    pthread_attr_destroy(&attributes);
    return error == 0;
}

} // namespace

/// Who waits for a name. It lives on the thread that asked.
class NameLookup::Receiver : public QObject
{
public:
    explicit Receiver(const Handler& found) : m_found(found) { }

    Result result; ///< for Pending, under its lock

protected:
    void customEvent(QEvent* event) override;

private:
    Handler m_found;
};

/// The names that are being looked up in this process, and who waits for each.
class NameLookup::Pending
{
public:
    // It outlives every thread, those that are still asking when the program ends included.
    static Pending& instance()
    {
        static auto* pending = new Pending;
        return *pending;
    }

    bool add(const QByteArray& name, Receiver* receiver)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_waiting.contains(name)) {
            // The thread's, which waits for the lock if it is through already.
            auto* argument = new QByteArray(name);
            if (!startDetached(&Pending::run, argument)) {
                delete argument;
                return false;
            }
        }
        m_waiting[name].push_back(receiver);
        return true;
    }

    // Waits for a thread that is just telling: what it has posted goes with the receiver.
    void remove(Receiver* receiver)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (auto& waiting : m_waiting) {
            waiting.erase(std::remove(waiting.begin(), waiting.end(), receiver), waiting.end());
        }
    }

    Result resultOf(const Receiver& receiver)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return receiver.result;
    }

private:
    static void* run(void* argument)
    {
        const std::unique_ptr<QByteArray> name(static_cast<QByteArray*>(argument));
        const Result result = resolve(*name, AI_ADDRCONFIG);
        Pending& pending = instance();
        const std::lock_guard<std::mutex> lock(pending.m_mutex);
        for (Receiver* receiver : pending.m_waiting.take(*name)) {
            receiver->result = result;
            QCoreApplication::postEvent(receiver, new QEvent(QEvent::User));
        }
        return nullptr;
    }

    std::mutex m_mutex;
    QHash<QByteArray, std::vector<Receiver*>> m_waiting;
};

void NameLookup::Receiver::customEvent(QEvent* event)
{
    Q_UNUSED(event)
    const Result found = Pending::instance().resultOf(*this);
    const Handler handler = m_found; // which may end this
    handler(found);
}

NameLookup::NameLookup(const Handler& found) : m_found(found) { }

NameLookup::~NameLookup() { cancel(); }

bool NameLookup::start(const QString& host, Result& result)
{
    cancel();
    const QByteArray name = encoded(host);
    result = resolve(name, AI_NUMERICHOST);
    if (!result.addresses.isEmpty() || name.isEmpty()) {
        return true;
    }
    m_receiver = std::make_unique<Receiver>(m_found);
    if (Pending::instance().add(name, m_receiver.get())) {
        return false;
    }
    m_receiver.reset();
    result.error = QStringLiteral("Host not found (no thread left to look it up)");
    return true;
}

void NameLookup::cancel()
{
    if (m_receiver) {
        Pending::instance().remove(m_receiver.get());
        m_receiver.reset();
    }
}
