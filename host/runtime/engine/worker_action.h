#pragma once

#include <plugin_management/order_failure.h>
#include <plugin_management/types.h>

#include <vector>

/// How an instruction goes on: an answer leaves it open, the others end it.
enum class Outcome { Answer, Done, Error };

/// One thing that a worker's engine has decided, for the shell to do.
struct WorkerAction
{
    enum class Kind : quint8 {
        TellRunning, ///< instruction \a id is about to be called
        CallFunction, ///< call the function of the chosen instruction
        JudgeReply, ///< give the frame to the reply hook
        TellOutcome, ///< tell \a outcome of instruction \a id
        TellState, ///< the link came (\a flag) or went
        OpenLink, ///< begin an attempt to connect; what there is of a link is closed first
        CloseLink,
        Look, ///< a limit has come: take in what has arrived before it is believed
        Log, ///< \a text, a warning if \a flag
        Nothing,
    };

    Kind kind = Kind::Log;
    Outcome outcome = Outcome::Answer;
    bool flag = false;
    quint64 id = 0;
    ParameterMap reply;
    OrderFailure failure; ///< of an outcome
    QString text;
};

/// First in, first out, in memory that it keeps.
class WorkerActions
{
public:
    bool empty() const { return m_next == m_actions.size(); }

    WorkerAction& add(WorkerAction::Kind kind, quint64 id = 0)
    {
        m_actions.emplace_back();
        m_actions.back().kind = kind;
        m_actions.back().id = id;
        return m_actions.back();
    }

    WorkerAction pop()
    {
        WorkerAction action = std::move(m_actions[m_next]);
        if (++m_next == m_actions.size()) {
            m_actions.clear();
            m_next = 0;
        }
        return action;
    }

    /// What is to be told of instruction \a id will not be told. True when there was something.
    bool dropOutcomes(quint64 id)
    {
        bool found = false;
        for (std::size_t i = m_next; i < m_actions.size(); ++i) {
            if (m_actions[i].kind == WorkerAction::Kind::TellOutcome && m_actions[i].id == id) {
                m_actions[i].kind = WorkerAction::Kind::Nothing;
                found = true;
            }
        }
        return found;
    }

private:
    std::vector<WorkerAction> m_actions;
    std::size_t m_next = 0;
};
