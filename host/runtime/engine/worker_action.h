#pragma once

#include <plugin_management/order_failure.h>
#include <plugin_management/types.h>

#include <utility>
#include <vector>

/// How an instruction goes on: an answer leaves it open, the others end it.
enum class Outcome : quint8 { Answer, Done, Error };

/// One thing that a worker's engine has decided, for the shell to do.
struct WorkerAction
{
    enum class Kind : quint8 {
        CallFunction, ///< tell that instruction \a id runs, unless it is 0, and call its function
        JudgeReply, ///< give the frame to the reply hook
        TellOutcome, ///< tell what has become of instruction \a id: takeNews()
        TellState, ///< the link came (\a flag) or went
        OpenLink, ///< begin an attempt to connect; what there is of a link is closed first. \a
                  ///< flag: even one that others use as well, as it can no longer be trusted
        CloseLink, ///< \a flag: for others who use it as well, as it can no longer be trusted
        AskTurn, ///< ask for the turn on a link that others use as well
        GiveTurn, ///< it is not needed any more; no reply to what was asked can come, if \a flag
        Look, ///< a limit has come: take in what has arrived before it is believed
        Log, ///< say it to people, as a warning if \a flag: takeNews()
        Nothing,
    };

    Kind kind = Kind::Nothing;
    Outcome outcome = Outcome::Answer;
    bool flag = false;
    quint64 id = 0;
};

/// What an outcome or a log line says.
struct WorkerNews
{
    ParameterMap reply;
    OrderFailure failure;
    QString text;
};

/// What is to be done, first in, first out, in memory that it keeps. What only one of an order's
/// entries needs stands beside them; that and fewer looks at the clock saved 700 instructions an
/// order.
class WorkerActions
{
public:
    using Kind = WorkerAction::Kind;

    bool empty() const { return m_next == m_actions.size(); }
    bool nextIs(Kind kind) const { return !empty() && m_actions[m_next].kind == kind; }

    void add(Kind kind, quint64 id = 0, bool flag = false)
    {
        m_actions.push_back({kind, Outcome::Answer, flag, id});
    }

    void tell(Outcome outcome, quint64 id, ParameterMap reply, const OrderFailure& failure)
    {
        m_actions.push_back({Kind::TellOutcome, outcome, false, id});
        m_news.push_back({std::move(reply), failure, {}});
    }

    void log(const QString& text, bool warning)
    {
        m_actions.push_back({Kind::Log, Outcome::Answer, warning, 0});
        m_news.push_back({{}, {}, text});
    }

    WorkerAction pop()
    {
        const WorkerAction action = m_actions[m_next];
        if (++m_next == m_actions.size()) {
            m_actions.clear();
            m_next = 0;
        }
        return action;
    }

    /// What the outcome or log line that was popped says. To be taken once for each.
    WorkerNews takeNews()
    {
        WorkerNews news = std::move(m_news[m_nextNews]);
        if (++m_nextNews == m_news.size()) {
            m_news.clear();
            m_nextNews = 0;
        }
        return news;
    }

    /// What is to be told of instruction \a id will not be told. True when there was something.
    bool dropOutcomes(quint64 id)
    {
        bool found = false;
        for (std::size_t i = m_next; i < m_actions.size(); ++i) {
            if (m_actions[i].kind == Kind::TellOutcome && m_actions[i].id == id) {
                m_actions[i].id = dropped;
                found = true;
            }
        }
        return found;
    }

    static constexpr quint64 dropped = 0; ///< the id of an outcome that nobody waits for

private:
    std::vector<WorkerAction> m_actions;
    std::size_t m_next = 0;
    std::vector<WorkerNews> m_news;
    std::size_t m_nextNews = 0;
};
