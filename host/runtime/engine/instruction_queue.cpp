#include <runtime/engine/instruction_queue.h>

#include <algorithm>
#include <utility>

namespace {

template <typename Container>
bool removeById(Container& instructions, quint64 id)
{
    const auto it = std::find_if(instructions.begin(), instructions.end(),
                                 [id](const auto& instruction) { return instruction->id == id; });
    if (it == instructions.end()) {
        return false;
    }
    instructions.erase(it);
    return true;
}

// Moves the next tick past now and tells how many ticks that passed over.
quint64 catchUp(WorkerInstruction& instruction, qint64 nowUs)
{
    if (instruction.nextTickUs > nowUs) {
        return 0;
    }
    const qint64 passed = (nowUs - instruction.nextTickUs) / instruction.intervalUs() + 1;
    instruction.nextTickUs += passed * instruction.intervalUs();
    return static_cast<quint64>(passed);
}

qint64 dueSinceUs(const WorkerInstruction& instruction)
{
    return instruction.nextTickUs - instruction.intervalUs();
}

} // namespace

void InstructionQueue::add(const WorkerInstructionPtr& instruction, qint64 nowUs)
{
    if (!instruction->recurrent()) {
        if (m_first) {
            m_others.push_back(instruction);
        } else {
            m_first = instruction;
        }
        return;
    }
    instruction->due = true;
    instruction->nextTickUs = nowUs + instruction->intervalUs();
    m_recurrent.push_back(instruction);
}

void InstructionQueue::putBack(const WorkerInstructionPtr& instruction)
{
    if (instruction->recurrent()) {
        instruction->running = false;
        instruction->due = true;
    } else {
        if (m_first) {
            m_others.push_front(std::move(m_first));
        }
        m_first = instruction;
    }
}

bool InstructionQueue::remove(quint64 id)
{
    if (m_first && m_first->id == id) {
        popFirst();
        return true;
    }
    return removeById(m_others, id) || removeById(m_recurrent, id);
}

WorkerInstructionPtr InstructionQueue::popNext() { return m_first ? popFirst() : popDue(); }

WorkerInstructionPtr InstructionQueue::popFirst()
{
    WorkerInstructionPtr first = std::move(m_first);
    if (!m_others.empty()) {
        m_first = std::move(m_others.front());
        m_others.pop_front();
    }
    return first;
}

// Recurrent ones always do.
bool InstructionQueue::needsLinkNext() const
{
    if (m_first) {
        return m_first->needsLink;
    }
    return std::any_of(m_recurrent.begin(), m_recurrent.end(),
                       [](const auto& instruction) { return instruction->due; });
}

WorkerInstructionPtr InstructionQueue::popNextWithoutLink()
{
    if (m_first && !m_first->needsLink) {
        return popFirst();
    }
    const auto it = std::find_if(m_others.begin(), m_others.end(),
                                 [](const auto& instruction) { return !instruction->needsLink; });
    if (it == m_others.end()) {
        return nullptr;
    }
    WorkerInstructionPtr instruction = std::move(*it);
    m_others.erase(it);
    return instruction;
}

WorkerInstructionPtr InstructionQueue::popDue()
{
    WorkerInstructionPtr longestWaiting;
    for (const WorkerInstructionPtr& instruction : m_recurrent) {
        if (instruction->due
            && (!longestWaiting || dueSinceUs(*instruction) < dueSinceUs(*longestWaiting))) {
            longestWaiting = instruction;
        }
    }
    if (longestWaiting) {
        longestWaiting->due = false;
        longestWaiting->running = true;
    }
    return longestWaiting;
}

std::vector<WorkerInstructionPtr> InstructionQueue::popWaiting()
{
    std::vector<WorkerInstructionPtr> waiting;
    std::list<WorkerInstructionPtr> staying;
    while (m_first) {
        WorkerInstructionPtr first = popFirst();
        if (first->needsLink) {
            waiting.push_back(std::move(first));
        } else {
            staying.push_back(std::move(first));
        }
    }
    m_others = std::move(staying);
    popFirst(); // there is none: the first of the others takes its place
    while (WorkerInstructionPtr instruction = popDue()) {
        waiting.push_back(std::move(instruction));
    }
    return waiting;
}

void InstructionQueue::tick(qint64 nowUs)
{
    for (const WorkerInstructionPtr& instruction : m_recurrent) {
        if (instruction->due || instruction->running || instruction->nextTickUs > nowUs) {
            continue;
        }
        m_ticksSkipped += catchUp(*instruction, nowUs) - 1;
        instruction->due = true;
    }
}

void InstructionQueue::runEnded(WorkerInstruction& instruction, qint64 nowUs)
{
    instruction.running = false;
    if (!instruction.stopped) { // of a stopped one no tick is due any more
        m_ticksSkipped += catchUp(instruction, nowUs);
    }
}

qint64 InstructionQueue::nextTickUs() const
{
    qint64 next = never;
    for (const WorkerInstructionPtr& instruction : m_recurrent) {
        const bool waits = !instruction->due && !instruction->running;
        next = waits ? std::min(next, instruction->nextTickUs) : next;
    }
    return next;
}
