#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "platform/CmReference.h"

template <class Signature>
class CCmCallable;

/// Holds a callable of a host: a lambda, a function, a std::function or any other object that can
/// be called with these arguments; or nothing. The public headers use it in place of std::function,
/// because <functional> would be a quarter of the lines that a host compiles for cachefile.h.
///
/// Copies share the callable, which is freed with the last copy. One object is for one thread at a
/// time, like a plain pointer; copies on different threads may be used at the same time if the
/// callable itself allows that. Construction throws std::bad_alloc, or what the copy of the
/// callable throws; a call throws what the callable throws.
template <class Result, class... Arguments>
class CCmCallable<Result(Arguments...)> {
 public:
    CCmCallable() = default;
    CCmCallable(std::nullptr_t) {}  // NOLINT: converts as std::function does

    /// Takes the callable. A null function pointer and an empty std::function leave this empty.
    template <class Function,
              class = std::enable_if_t<!std::is_same_v<Function, CCmCallable> &&
                                       std::is_invocable_r_v<Result, Function&, Arguments...>>>
    CCmCallable(Function aFunction) {  // NOLINT: converts as std::function does
        if (!IsEmpty(aFunction, 0)) m_pBody = new Body<Function>(std::move(aFunction));
    }

    explicit operator bool() const { return bool{m_pBody}; }

    /// Calls the callable. This must not be empty.
    Result operator()(Arguments... aArguments) const {
        return m_pBody->Call(std::forward<Arguments>(aArguments)...);
    }

 private:
    struct IBody : CCmReferenceControlT<CCmMutexThread> {
        virtual Result Call(Arguments... aArguments) = 0;
    };

    template <class Function>
    struct Body final : IBody {
        explicit Body(Function&& aFunction) : m_aFunction(std::move(aFunction)) {}
        Result Call(Arguments... aArguments) override {
            return static_cast<Result>(m_aFunction(std::forward<Arguments>(aArguments)...));
        }
        Function m_aFunction;
    };

    /// Pointers and objects like a std::function can be compared with null. For the others the
    /// second function is chosen.
    template <class Function>
    static auto IsEmpty(const Function& aFunction, int) -> decltype(aFunction == nullptr) {
        return aFunction == nullptr;
    }
    template <class Function>
    static bool IsEmpty(const Function&, long) {
        return false;
    }

    CRefPtr<IBody> m_pBody;
};
