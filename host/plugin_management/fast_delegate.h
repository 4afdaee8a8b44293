#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

/// Delegates: an object and one of its member functions, held by value without allocation and
/// called like a function. A delegate does not own its object and does not notice its end: whoever
/// binds one sees to it that the object outlives the last call. Called on the thread of who holds
/// it.
///
/// FastDelegate2 and FastDelegate3 are part of the binary interface: their names stand in the
/// symbols of the operations that take them. Delegate is what they are made of.
namespace fastdelegate {

template <typename Result, typename... Arguments>
class Delegate
{
public:
    Delegate() = default;

    /// Binds \a object and \a method, a member function of its class or of a base of it.
    template <typename Object, typename Owner>
    Delegate(Object* object, Result (Owner::*method)(Arguments...))
    {
        bind(object, method);
    }

    template <typename Object, typename Owner>
    void bind(Object* object, Result (Owner::*method)(Arguments...))
    {
        static_assert(sizeof(method) <= methodSize, "a member pointer of this ABI must fit");
        static_assert(std::is_trivially_copyable_v<decltype(method)>);
        m_object = static_cast<Owner*>(object);
        std::memcpy(m_method, &method, sizeof(method));
        m_call = &Delegate::template call<Owner>;
    }

    /// True when nothing is bound.
    bool empty() const { return m_call == nullptr; }
    explicit operator bool() const { return !empty(); }
    void clear() { *this = Delegate(); }

    /// Calls the bound function. The delegate must not be empty.
    Result operator()(Arguments... arguments) const { return m_call(*this, arguments...); }

private:
    template <typename Owner>
    static Result call(const Delegate& self, Arguments... arguments)
    {
        Result (Owner::*method)(Arguments...) = nullptr;
        std::memcpy(&method, self.m_method, sizeof(method));
        return (static_cast<Owner*>(self.m_object)->*method)(arguments...);
    }

    static constexpr std::size_t methodSize = 2 * sizeof(void*);

    using Call = Result (*)(const Delegate&, Arguments...);

    void* m_object = nullptr;
    alignas(void*) unsigned char m_method[methodSize] = {};
    Call m_call = nullptr;
};

template <typename A1, typename A2, typename Result = void>
class FastDelegate2 : public Delegate<Result, A1, A2>
{
public:
    using Delegate<Result, A1, A2>::Delegate;
};

template <typename A1, typename A2, typename A3, typename Result = void>
class FastDelegate3 : public Delegate<Result, A1, A2, A3>
{
public:
    using Delegate<Result, A1, A2, A3>::Delegate;
};

} // namespace fastdelegate
