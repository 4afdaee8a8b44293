#pragma once

#include "book.h"
#include "plan.h"
#include "random.h"

#include <plugin_management/d_abstract_plugin.h>

/// Who uses one plug-in object: makes it, asks it for all that it can do, destroys it, at any time
/// and inside whatever it reports.
class User
{
public:
    User(const Plan& plan, int number, DAbstractPlugin* root, Book& book);
    ~User();
    Q_DISABLE_COPY(User)

    /// Those whose objects it uses as well, inside a report of its own.
    void setOthers(const std::vector<User*>& others) { m_others = others; }
    void begin();
    /// Nothing more of its own accord: the object is connected, and asked once in a while.
    void calmDown();
    /// Asks once more, which must be answered.
    void probe();
    bool isProbed() const { return m_isProbed; }
    void destroy();
    WorkerStatistics statistics() const;

    static constexpr int calmOrders = 2; ///< a connect and a listen

private:
    void think();
    void make();
    void follow();
    void doDeed(Deed deed);
    Deed drawDeed();
    void inside();

    void connectIt();
    void start(const Asked& asked);
    void stop(quint64 id);
    void burst();
    void traceFrames();
    void runLoop();
    void look();

    Asked draw(Deed deed);
    Asked read(const QString& command);
    Asked write();
    Asked listen(int count, int intervalMs);
    quint16 nextStart();

    const Plan& m_plan;
    int m_number;
    DAbstractPlugin* m_root;
    Book& m_book;
    Random m_random;
    std::vector<User*> m_others;
    DAbstractPlugin* m_object = nullptr;
    quint16 m_nextStart;
    int m_depth = 0;
    bool m_isCalm = false;
    bool m_isTraced = false;
    quint64 m_probe = 0;
    bool m_isProbed = false;
};
