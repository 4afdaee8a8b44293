#pragma once

#include <QtGlobal>

class LifeGuard;

/// Of an object whose functions call what may destroy it. As its last member, so that it goes
/// first.
class Lifetime
{
public:
    Lifetime() = default;
    inline ~Lifetime();
    Q_DISABLE_COPY(Lifetime)

private:
    friend class LifeGuard;
    LifeGuard* m_innermost = nullptr; ///< of those on the stack, each of which knows the next
};

/// A local variable of such a function: true for as long as the object is there. It costs two
/// stores and touches nothing but the object.
class LifeGuard
{
public:
    explicit LifeGuard(Lifetime& lifetime) : m_lifetime(&lifetime), m_outer(lifetime.m_innermost)
    {
        lifetime.m_innermost = this;
    }
    ~LifeGuard()
    {
        if (m_lifetime != nullptr) {
            m_lifetime->m_innermost = m_outer;
        }
    }
    Q_DISABLE_COPY(LifeGuard)

    explicit operator bool() const { return m_lifetime != nullptr; }

private:
    friend class Lifetime;
    Lifetime* m_lifetime;
    LifeGuard* m_outer;
};

Lifetime::~Lifetime()
{
    for (LifeGuard* guard = m_innermost; guard != nullptr; guard = guard->m_outer) {
        guard->m_lifetime = nullptr;
    }
}
