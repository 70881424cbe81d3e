#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

#include "platform/CmReference.h"

template <class Signature>
class CCmCallable;

/// Holds a callable of a host: a lambda, a function, a std::function or any other object that can
/// be called with these arguments; or nothing. The public headers use it in place of std::function,
/// because <functional> would be a quarter of the lines that a host compiles for cachefile.h.
///
/// A callable that is trivially copyable and not larger than two pointers, such as a function or a
/// lambda with two references, is stored in the object. It needs no memory, so such a callable can
/// be installed even if there is none. Any other callable is allocated; its construction can throw
/// std::bad_alloc. Copies share it, and it is freed with the last copy.
///
/// One object is for one thread at a time, like a plain pointer. Copies may be used on different
/// threads at the same time if the callable itself allows that. A call throws what the callable
/// throws.
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
        if (IsEmpty(aFunction, 0)) return;
        if constexpr (IsStoredHere<Function>()) {
            new (m_aBytes) Function(std::move(aFunction));
            m_pCall = CallStored<Function>;
        } else {
            m_pBody = new Body<Function>(std::move(aFunction));
        }
    }

    explicit operator bool() const { return m_pCall || m_pBody; }

    /// Calls the callable. This must not be empty.
    Result operator()(Arguments... aArguments) const {
        return m_pCall ? m_pCall(m_aBytes, std::forward<Arguments>(aArguments)...)
                       : m_pBody->Call(std::forward<Arguments>(aArguments)...);
    }

 private:
    template <class Function>
    static constexpr bool IsStoredHere() {
        return std::is_trivially_copyable_v<Function> && sizeof(Function) <= sizeof m_aBytes &&
               alignof(Function) <= alignof(void*);
    }

    template <class Function>
    static Result CallStored(unsigned char* lpBytes, Arguments... aArguments) {
        return static_cast<Result>((*std::launder(reinterpret_cast<Function*>(lpBytes)))(
            std::forward<Arguments>(aArguments)...));
    }

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

    Result (*m_pCall)(unsigned char*, Arguments...) = nullptr;  // null unless stored in m_aBytes
    alignas(void*) mutable unsigned char m_aBytes[2 * sizeof(void*)] = {};
    CRefPtr<IBody> m_pBody;
};
