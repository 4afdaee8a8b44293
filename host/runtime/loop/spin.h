#pragma once

#include <runtime/loop/reactor.h>

/// Has the event loop look for what comes, awake, for a short while before it sleeps: to fall
/// asleep and to be woken takes longer than a near device needs for its reply. What comes is
/// handled by the loop as ever, in the same order. Belongs to the thread that uses it first.
class Spin
{
public:
    static constexpr qint64 limitUs = 20; ///< for which a loop looks, once before each sleep
    using Question = fastdelegate::Delegate<bool>;

    /// \a isAwaited is asked before the loop sleeps, and must do nothing else.
    explicit Spin(const Question& isAwaited) : m_isAwaited(isAwaited) { }
    ~Spin();
    Q_DISABLE_COPY(Spin)

    /// Something was asked for, and may come at once.
    void expect();

    // For the reactor, before the loop sleeps.
    /// Looks whether \a poll becomes ready, if that is worth it for one of these.
    static void spin(const std::vector<Spin*>& expected, int poll);
    /// Whether it is worth looking.
    bool begin();
    /// Whether anything has come by then.
    void end(bool came);

private:
    static constexpr int mostPassed = 256;

    Question m_isAwaited;
    std::shared_ptr<Reactor> m_reactor;
    bool m_isExpected = false;
    bool m_isSpinning = false;
    int m_passed = 0; ///< how many in a row are to be passed over after one that did not come
    int m_toPass = 0; ///< of them, from here on
};
