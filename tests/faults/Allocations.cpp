#include "tests/faults/Allocations.h"

#include "tests/sandbox/ParallelSandboxes.h"
#include "tests/support/Descriptor.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/tracing/Words.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <new>

namespace ZNORBFAULTS {
namespace {

using namespace ZNORBTRACING;

constexpr const char* allocatorLibrary = ZNORB_FAILING_ALLOCATOR;

/// The control file of one life, mapped.
class Control {
public:
    Control() {
        const ZNORBTEST::Descriptor file(open(path().c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (ftruncate(file.get(), sizeof(AllocationControl)) == 0) {
            void* memory =
                mmap(nullptr, sizeof(AllocationControl), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
            m_control = memory == MAP_FAILED ? nullptr : new (memory) AllocationControl();
        }
        if (m_control != nullptr) {
            m_control->role = static_cast<std::uint32_t>(AllocationRole::None);
        }
    }
    ~Control() {
        if (m_control != nullptr) {
            (void)munmap(m_control, sizeof(AllocationControl));
        }
    }

    AllocationControl* operator->() const { return m_control; }
    explicit operator bool() const { return m_control != nullptr; }
    std::string path() const { return m_folder / "control"; }

private:
    ZNORBTEST::TemporaryFolder m_folder;
    AllocationControl* m_control = nullptr;
};

LifeSettings settingsFor(LifeKind kind, const Control& control) {
    LifeSettings settings;
    settings.environment = {std::string("LD_PRELOAD=") + allocatorLibrary,
                            std::string(allocationControlVariable) + "=" + control.path()};
    settings.environmentOfOther = settings.environment;
    settings.environmentOfOther.push_back(std::string(allocationRoleVariable) + "=" +
                                          (kind == LifeKind::Stop ? "stop" : "second"));
    return settings;
}

/// The counts of a life without a fault, as numbers with blanks between them, and what was seen of it.
std::string countAllocations(LifeKind kind) {
    const Control control;
    if (!control) {
        return "";
    }
    (void)runLife(kind, settingsFor(kind, control));
    std::string text;
    for (const std::atomic<std::uint32_t>& count : control->counts) {
        text += (text.empty() ? "" : " ") + std::to_string(count);
    }
    return text;
}

std::string runWithFault(const Observation& usual, const AllocationFault& fault) {
    const Control control;
    if (!control) {
        return "no control file";
    }
    control->role = static_cast<std::uint32_t>(fault.role);
    control->number = fault.number;
    control->forEver = fault.forEver;
    const LifeRecord life = runLife(fault.life, settingsFor(fault.life, control));
    return (control->hasFailed ? injectedMark : "") + difference(usual, life.observation);
}

/// Which lives show a role: one is enough.
bool isRoleOf(LifeKind kind, unsigned role) {
    switch (static_cast<AllocationRole>(role)) {
    case AllocationRole::Stop:
        return kind == LifeKind::Stop;
    case AllocationRole::Second:
        return kind == LifeKind::Refused;
    default:
        return kind == LifeKind::Quit;
    }
}

} // namespace

std::string describe(AllocationRole role) {
    constexpr std::array<const char*, allocationRoles> names = {
        "invoking", "intermediate", "main", "responder", "launch", "stop", "second"};
    return role == AllocationRole::None ? "none" : names[static_cast<unsigned>(role)];
}

std::vector<AllocationFault> planAllocations(bool forEver, std::string& problem) {
    std::vector<AllocationFault> plan;
    for (const LifeKind kind : allLifeKinds) {
        const std::string text =
            ZNORBTEST::runInSandboxes(1, [kind](std::size_t) { return countAllocations(kind); }).front();
        const std::vector<std::string> counts = splitAt(' ', text);
        if (counts.size() != allocationRoles || counts.front() == "0") {
            problem = "allocations cannot be counted (is this a static build?): " + text;
            return {};
        }
        for (unsigned role = 0; role < allocationRoles; ++role) {
            const unsigned long count = isRoleOf(kind, role) ? std::stoul(counts[role]) : 0;
            for (unsigned number = 1; number <= count; ++number) {
                plan.push_back({kind, static_cast<AllocationRole>(role), number, false});
                if (forEver) {
                    plan.push_back({kind, static_cast<AllocationRole>(role), number, true});
                }
            }
        }
    }
    return plan;
}

std::vector<AllocationOutcome> runAllocations(const UsualLives& lives,
                                              const std::vector<AllocationFault>& plan) {
    const std::vector<std::string> texts = ZNORBTEST::runInSandboxes(plan.size(), [&](std::size_t index) {
        return runWithFault(lives.at(plan[index].life).observation, plan[index]);
    });
    return outcomesOf<AllocationOutcome>(plan, texts);
}

} // namespace ZNORBFAULTS
