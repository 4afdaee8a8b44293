#pragma once

#include <QtGlobal>

/// An object that calls code which may end it, and so lives on until such calls have returned. What
/// it needs for that is a count, where a shared pointer costs some 20 instructions a call.
class Lingering
{
public:
    /// Nobody wants the object any more: it goes now, or when the last Stay ends.
    void release()
    {
        m_isReleased = true;
        endIfUnused();
    }

protected:
    Lingering() = default;
    virtual ~Lingering() = default;
    Q_DISABLE_COPY(Lingering)

    /// A local variable of a function that calls foreign code.
    class Stay
    {
    public:
        explicit Stay(Lingering* object) : m_object(object) { ++object->m_stays; }
        ~Stay()
        {
            --m_object->m_stays;
            m_object->endIfUnused();
        }
        Q_DISABLE_COPY(Stay)

    private:
        Lingering* m_object;
    };

private:
    void endIfUnused()
    {
        if (m_isReleased && m_stays == 0) {
            destroy();
        }
    }
    void destroy();

    int m_stays = 0;
    bool m_isReleased = false;
};
