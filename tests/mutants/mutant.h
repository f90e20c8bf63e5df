// The switch in the copies of the module's sources that scripts/mutants makes. Each place of a copy that can
// be broken asks for its number; the environment variable VELTO_MUTANT names the one that is broken in this
// process.
#pragma once

#include <limits>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <type_traits>
#include <utility>

namespace velto_mutants {

constexpr unsigned maxMutants = 131072;
extern unsigned active;        // 0: none
extern unsigned char *reached; // maxMutants flags

// Another value of the same type. Enumerations stay in the range of their enumerators, except for those that
// have only one.
template <typename Value>
constexpr Value Changed(Value value)
{
    if constexpr (std::is_same_v<Value, bool>) {
        return !value;
    } else if constexpr (std::is_enum_v<Value>) {
        using Number = std::underlying_type_t<Value>;
        const auto number = static_cast<Number>(value);
        return static_cast<Value>(number > 0 ? number - 1 : number + 1);
    } else if constexpr (std::is_floating_point_v<Value>) {
        return value == 0 ? Value{1} : 2 * value;
    } else if (value == 1) {
        return 0;
    } else {
        return static_cast<Value>(value == std::numeric_limits<Value>::max() ? value - 1 : value + 1);
    }
}

// Unlocks at the end of a block what a block inside it has locked.
class LockExtension {
public:
    LockExtension() = default;
    ~LockExtension()
    {
        if (m_mutex != nullptr) {
            m_unlock(m_mutex);
        }
    }
    LockExtension(const LockExtension &) = delete;
    LockExtension &operator=(const LockExtension &) = delete;

    template <typename Mutex>
    void Own(Mutex *mutex, bool shared)
    {
        m_mutex = const_cast<void *>(static_cast<const void *>(mutex));
        m_unlock = [](void *owned) { static_cast<Mutex *>(owned)->unlock(); };
        if constexpr (requires { mutex->unlock_shared(); }) {
            if (shared) {
                m_unlock = [](void *owned) { static_cast<Mutex *>(owned)->unlock_shared(); };
            }
        }
    }

private:
    void *m_mutex = nullptr;
    void (*m_unlock)(void *) = nullptr;
};

// Declared after a lock: when the lock's block ends, the extension owns the mutex instead.
template <typename Lock>
class LockHandover {
public:
    LockHandover(Lock &lock, bool extended, LockExtension &extension)
        : m_lock(lock), m_extended(extended), m_extension(extension)
    {
    }
    ~LockHandover()
    {
        auto &lock = const_cast<std::remove_const_t<Lock> &>(m_lock);
        if (m_extended && lock.owns_lock()) {
            using Mutex = typename std::remove_const_t<Lock>::mutex_type;
            m_extension.Own(lock.release(),
                            std::is_same_v<std::remove_const_t<Lock>, std::shared_lock<Mutex>>);
        }
    }
    LockHandover(const LockHandover &) = delete;
    LockHandover &operator=(const LockHandover &) = delete;

private:
    Lock &m_lock;
    bool m_extended;
    LockExtension &m_extension;
};

} // namespace velto_mutants

// True in the process that runs this mutant. Records that the place was reached.
inline bool VeltoMutant(unsigned id) noexcept
{
    __atomic_store_n(velto_mutants::reached + id, 1, __ATOMIC_RELAXED);
    return id == velto_mutants::active;
}

// The same for a constexpr function. If the compiler evaluates the function, it uses the unbroken code.
constexpr bool VeltoConstexprMutant(unsigned id) noexcept
{
    return !std::is_constant_evaluated() && VeltoMutant(id);
}
