#include <runtime/engine/instruction_queue.h>

#include <algorithm>
#include <functional>

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
        m_oneShots.push_back(instruction);
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
        m_oneShots.push_front(instruction);
    }
}

bool InstructionQueue::remove(quint64 id)
{
    return removeById(m_oneShots, id) || removeById(m_recurrent, id);
}

WorkerInstructionPtr InstructionQueue::popNext()
{
    if (m_oneShots.empty()) {
        return popDue();
    }
    WorkerInstructionPtr instruction = std::move(m_oneShots.front());
    m_oneShots.pop_front();
    return instruction;
}

// Recurrent ones always do.
bool InstructionQueue::needsLinkNext() const
{
    if (!m_oneShots.empty()) {
        return m_oneShots.front()->needsLink;
    }
    return std::any_of(m_recurrent.begin(), m_recurrent.end(),
                       [](const auto& instruction) { return instruction->due; });
}

WorkerInstructionPtr InstructionQueue::popNextWithoutLink()
{
    const auto it = std::find_if(m_oneShots.begin(), m_oneShots.end(),
                                 [](const auto& instruction) { return !instruction->needsLink; });
    if (it == m_oneShots.end()) {
        return nullptr;
    }
    WorkerInstructionPtr instruction = std::move(*it);
    m_oneShots.erase(it);
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
    const auto waits = [](const WorkerInstructionPtr& instruction) {
        return instruction->needsLink;
    };
    const auto firstWaiting =
        std::stable_partition(m_oneShots.begin(), m_oneShots.end(), std::not_fn(waits));
    std::vector<WorkerInstructionPtr> waiting(firstWaiting, m_oneShots.end());
    m_oneShots.erase(firstWaiting, m_oneShots.end());
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
