#pragma once

#include <atomic>
#include <cerrno>
#include <functional>
#include <utility>

/// Functions of the C library's that tests replace: a program that uses this header has stand-ins of its own
/// for those in StandIns.cpp. They do what the library's do, but for what a test says.
namespace ZNORBTEST {

template <typename Result, typename... Arguments>
std::function<Result(Arguments...)> hookFor(Result (*)(Arguments...));

/// Brings the stand-ins into the program.
void linkStandIns();

/// Acts in the place of a function while it lives, on whatever thread:
///
///     const InPlaceOf<unlink> removals([&](const char* path) {
///         ++count;
///         return unlink(path);
///     });
///
/// What it calls itself goes to the C library. The latest one made acts, and the one before it again when
/// that has gone. No other thread may be in the function when it goes. A child of a fork has it, too.
template <auto function>
class InPlaceOf {
public:
    using Hook = decltype(hookFor(function));

    explicit InPlaceOf(Hook hook) : m_hook(std::move(hook)), m_before(s_current.exchange(&m_hook)) {
        linkStandIns();
    }
    ~InPlaceOf() { s_current = m_before; }
    InPlaceOf(const InPlaceOf&) = delete;
    InPlaceOf& operator=(const InPlaceOf&) = delete;

    /// For the stand-in: what its caller gets.
    template <typename Original, typename... Arguments>
    static typename Hook::result_type call(Original original, Arguments... arguments) {
        const Hook* const hook = s_current;
        if (hook == nullptr || t_isActing) {
            return static_cast<typename Hook::result_type>(original(arguments...));
        }
        const Acting acting;
        return (*hook)(arguments...);
    }

private:
    inline static constinit std::atomic<const Hook*> s_current = nullptr;
    inline static thread_local constinit bool t_isActing = false;

    struct Acting {
        Acting() { t_isActing = true; }
        ~Acting() { t_isActing = false; }
        Acting(const Acting&) = delete;
        Acting& operator=(const Acting&) = delete;
    };

    const Hook m_hook;
    const Hook* const m_before;
};

/// Lets a function return -1 with an error while it lives: in its next `times` calls after `skipped` that
/// succeed, or in all.
template <auto function>
class FailingCall {
public:
    static constexpr unsigned always = 0x7fffffff;

    explicit FailingCall(int error, unsigned times = always, unsigned skipped = 0)
        : m_inPlace([this, error, times, skipped](auto... arguments) {
              const unsigned number = m_calls++;
              if (number < skipped || number - skipped >= times) {
                  return function(arguments...);
              }
              errno = error;
              return static_cast<decltype(function(arguments...))>(-1);
          }) {}

    [[nodiscard]] unsigned calls() const { return m_calls; }

private:
    std::atomic<unsigned> m_calls = 0;
    const InPlaceOf<function> m_inPlace;
};

} // namespace ZNORBTEST
