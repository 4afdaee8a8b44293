#include "device.h"

#include "frames.h"

#include <QTcpSocket>

#include <algorithm>
#include <chrono>

namespace {

using namespace Frames;

constexpr std::size_t answersKept = 256;
constexpr int multipleDataOffset = 13;
// The multiplier is odd: within a table, no two registers hold the same.
quint16 wordAt(quint8 function, int address)
{
    return static_cast<quint16>(address * 40503 + function * 7919);
}

bool bitAt(quint8 function, int address)
{
    quint32 mixed = (static_cast<quint32>(address) * 8 + function) * 2654435761U;
    mixed = (mixed ^ mixed >> 15) * 2246822519U;
    return (mixed >> 31) != 0;
}

} // namespace

qint64 steadyMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

QByteArray HostileDevice::dataAt(quint8 function, quint16 start, quint16 quantity)
{
    if (function > 2) {
        QByteArray words;
        for (int i = 0; i < quantity; ++i) {
            const quint16 word = wordAt(function, start + i);
            words.append(static_cast<char>(word >> 8)).append(static_cast<char>(word));
        }
        return words;
    }
    QByteArray bits((quantity + 7) / 8, '\0');
    for (int i = 0; i < quantity; ++i) {
        const int bit = bitAt(function, start + i) ? 1 << i % 8 : 0;
        bits[i / 8] = static_cast<char>(bits.at(i / 8) | bit);
    }
    return bits;
}

QByteArray HostileDevice::identification() { return QByteArrayLiteral("\1\xffhostile device"); }

HostileDevice::HostileDevice(const Misbehaviour& misbehaviour)
    : m_spoiler(misbehaviour, [this](QTcpSocket* client) { serve(client); })
{
}

void HostileDevice::serve(QTcpSocket* client)
{
    m_clients.insert(client, {++m_connections, true});
    ++m_open;
    QObject::connect(client, &QTcpSocket::readyRead, client,
                     [this, client] { takeRequests(client); });
    QObject::connect(client, &QTcpSocket::disconnected, client, [this, client] {
        m_clients.remove(client);
        --m_open;
    });
}

void HostileDevice::takeRequests(QTcpSocket* client)
{
    while (client->bytesAvailable() >= headerSize && m_clients.contains(client)) {
        const int size = headerSize + static_cast<uchar>(client->peek(headerSize)[lengthOffset]);
        if (client->bytesAvailable() < size) {
            return;
        }
        answer(client, client->read(size));
    }
}

void HostileDevice::answer(QTcpSocket* client, const QByteArray& request)
{
    Answer answer;
    answer.function = static_cast<quint8>(request.at(functionOffset));
    const QByteArray body = carryOut(request, answer);
    const QByteArray reply = replyTo(request, answer.function, body);
    answer.kind = m_behaves ? nullptr : m_spoiler.draw(*client, reply);
    noteSpoiled(answer, reply);
    Client& seen = m_clients[client];
    seen.clean = seen.clean && answer.kind == nullptr;
    answer.connection = seen.connection;
    answer.clean = seen.clean;
    writeDown(answer);
    m_spoiler.send(client, reply, answer.kind);
}

// The reply's body behind the function code.
QByteArray HostileDevice::carryOut(const QByteArray& request, Answer& answer)
{
    if (answer.function == 17) {
        answer.data = identification();
        return static_cast<char>(answer.data.size()) + answer.data;
    }
    answer.start = wordIn(request, startOffset);
    const bool single = answer.function == 5 || answer.function == 6;
    answer.quantity = single ? quint16(1) : wordIn(request, quantityOffset);
    if (answer.start >= missingFrom) {
        answer.function |= exceptionBit;
        return QByteArray(1, illegalDataAddress);
    }
    return answer.function <= 4 ? read(answer) : write(request, answer);
}

QByteArray HostileDevice::read(Answer& answer) const
{
    answer.data = dataAt(answer.function, answer.start, answer.quantity);
    for (int i = 0; answer.function == 3 && i < answer.quantity; ++i) {
        const auto written = m_written.constFind(answer.start + i);
        if (written != m_written.cend()) {
            answer.data.replace(2 * i, 2, *written);
        }
    }
    return static_cast<char>(answer.data.size()) + answer.data;
}

QByteArray HostileDevice::write(const QByteArray& request, Answer& answer)
{
    answer.data =
        answer.function == 16 ? request.mid(multipleDataOffset) : request.mid(quantityOffset, 2);
    for (int i = 0; answer.function != 5 && i < answer.quantity; ++i) {
        m_written[answer.start + i] = answer.data.mid(2 * i, 2);
    }
    return request.mid(startOffset, echoSize - startOffset);
}

// Behind a stale copy each reply comes to the next request, a spoiled one too.
void HostileDevice::noteSpoiled(Answer& answer, const QByteArray& reply)
{
    const QByteArray sent = answer.kind != nullptr ? answer.kind->now(reply, {}) : QByteArray();
    if (sent.size() > dataOffset) {
        answer.spoiledFunction = static_cast<quint8>(sent.at(functionOffset));
        answer.spoiledData = sent.mid(dataOffset);
    }
}

void HostileDevice::writeDown(const Answer& answer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_answers.size() == answersKept) {
        m_answers.pop_front();
    }
    m_answers.push_back(answer);
    m_answers.back().number = ++m_answered;
    m_answers.back().atMs = steadyMs();
}

quint64 HostileDevice::answered() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_answered;
}

std::optional<HostileDevice::Answer>
HostileDevice::newest(const std::function<bool(const Answer&)>& fits) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto it = std::find_if(m_answers.rbegin(), m_answers.rend(), fits);
    return it != m_answers.rend() ? std::optional<Answer>(*it) : std::nullopt;
}
