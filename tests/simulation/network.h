#pragma once

#include "random.h"

#include <QByteArray>

#include <sys/epoll.h>

#include <map>
#include <memory>
#include <vector>

/// The network of a world as the process sees it: the sockets and polls behind the calls that it
/// makes of the system. An object has a port of its own, so a link's port tells whose it is.
class Network
{
public:
    /// A device, which has one port or more.
    class Listener
    {
    public:
        virtual ~Listener() = default;
        /// For a link: accept(), refuse(), or nothing; for a serial line at once.
        virtual void asked(quint64 link) = 0;
        virtual void sent(quint64 link, const QByteArray& bytes) = 0;
        virtual void left(quint64 link) = 0;
    };

    /// Who sees what the process does with the links of a port.
    class Watcher
    {
    public:
        virtual ~Watcher() = default;
        virtual void attempts(quint64 link) = 0;
        virtual void opens(quint64 link) = 0;
        virtual void sends(quint64 link, const QByteArray& bytes) = 0;
        virtual void receives(quint64 link, const QByteArray& bytes) = 0;
        virtual void loses(quint64 link) = 0; ///< the process has been told so
        virtual void closes(quint64 link, int unread) = 0;
        virtual void looksUp() = 0; ///< the name of the device, which is an attempt too
    };

    explicit Network(quint64 seed);
    ~Network();
    Q_DISABLE_COPY(Network)

    static Network* current();

    void listen(quint16 port, Listener* listener, Watcher* watcher);
    /// The name of the device at this port is looked up.
    void lookUp(quint16 port);
    /// How many descriptors of this port are open.
    int openCount(quint16 port) const;
    int openCount() const;

    // What is outside does. Nothing happens on a link that the process has closed.
    void accept(quint64 link);
    void refuse(quint64 link, int error);
    void deliver(quint64 link, const QByteArray& bytes);
    /// As much again and again as the process takes.
    bool hasRoom(quint64 link) const;
    void end(quint64 link);
    void reset(quint64 link);
    bool isOpen(quint64 link) const { return m_links.count(link) > 0; }

    // What the process asks of the system, with errno where a call fails.
    static bool owns(int descriptor) { return descriptor >= firstDescriptor; }
    int openSocket();
    /// A serial line, which is there at once or not at all.
    int openLine(quint16 port);
    int connectSocket(int descriptor, quint32 address, quint16 port);
    int takeError(int descriptor);
    long receive(int descriptor, char* data, std::size_t size);
    long send(int descriptor, const char* data, std::size_t size);
    /// Of these events, and of those that nobody has to ask for.
    quint32 ready(int descriptor, quint32 events) const;
    int waiting(int descriptor) const;
    void close(int descriptor);
    int openPoll();
    int control(int poll, int operation, int descriptor, const epoll_event* event);
    int ready(int poll, epoll_event* events, int size);
    bool isPoll(int descriptor) const;
    bool isPollReady(int poll) const;

    static constexpr quint32 deadAddress = 0x0A630001; ///< 10.99.0.1: nobody answers
    static constexpr quint32 emptyAddress = 0x0A620001; ///< 10.98.0.1: refused at once

private:
    struct Socket
    {
        quint64 link = 0;
        quint16 port = 0;
        enum class State { Fresh, Connecting, Connected, Failed } state = State::Fresh;
        int error = 0;
        QByteArray inbox;
        bool hasEnded = false;
        bool wasReset = false;
        bool isTold = false; ///< that the link has gone
        bool isLine = false; ///< a serial one
        int vainReads = 0; ///< in a row
    };
    struct Watched
    {
        int descriptor;
        quint32 events;
        quint64 data;
    };
    struct Poll
    {
        std::vector<Watched> watched; ///< in turn
    };
    struct Port
    {
        Listener* listener;
        Watcher* watcher;
    };

    static constexpr int firstDescriptor = 512;
    static std::size_t place(int descriptor);
    Socket* socket(int descriptor) const;
    Socket* socketOf(quint64 link) const;
    const Port& begin(Socket& socket, quint16 port);
    const Port& portOf(const Socket& socket) const { return m_ports.at(socket.port); }
    static quint32 readiness(const Socket& socket);
    void tellLoss(Socket& socket);
    static void countVainRead(Socket& socket);

    Random m_random;
    quint64 m_nextLink = 0;
    std::map<quint16, Port> m_ports;
    std::map<quint64, int> m_links; ///< by number, those that are connecting or connected
    std::vector<std::unique_ptr<Socket>> m_sockets; ///< by descriptor
    std::vector<std::unique_ptr<Poll>> m_polls;
};
