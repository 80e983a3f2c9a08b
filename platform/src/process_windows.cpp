#include <Oak/Base/Noncopyable.h>
#include <Oak/Base/Process.h>

#include <process.h>
#include <windows.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <system_error>
#include <type_traits>
#include <utility>

namespace Oak::Base {
namespace {

struct HandleDeleter {
    void operator()(HANDLE handle) const noexcept { CloseHandle(handle); }
};
using HandlePtr = std::unique_ptr<std::remove_pointer_t<HANDLE>, HandleDeleter>;

/// A function of a library that every process has loaded, or null on a system that lacks it.
template <typename Function>
Function Find(const wchar_t* library, const char* name) noexcept {
    const HMODULE module = GetModuleHandleW(library);
    if (module == nullptr) return nullptr;
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

/// Debuggers show it; systems before Windows 10 know no names.
void NameThread(const char* name) noexcept {
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const auto set = Find<SetDescription>(L"kernel32.dll", "SetThreadDescription");
    if (set == nullptr) return;
    std::array<wchar_t, 16> kept{};
    for (std::size_t i = 0; i + 1 < kept.size() && name[i] != '\0'; ++i)
        kept[i] = static_cast<unsigned char>(name[i]);
    set(GetCurrentThread(), kept.data());
}

/// One more reference on the module that this code is part of, which is kept until it is given to
/// FreeLibraryAndExitThread.
HMODULE HoldOwnModule() {
    HMODULE module = nullptr;
    if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                           reinterpret_cast<LPCWSTR>(&HoldOwnModule), &module) == 0)
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                                "the module can't be held");
    return module;
}

[[noreturn]] void ThrowNoThread(int code, const std::error_category& category) {
    throw std::system_error(code, category, "no thread");
}

}  // namespace

/// What the thread and its owner share.
struct ServiceThread::State {
    HandlePtr returned;  ///< an event: the body has returned
    HandlePtr thread;
};

namespace {

/// What a new thread is given.
struct Start : private CNoncopyable {
    Start(const char* threadName, std::function<void()> threadBody)
        : name(threadName), body(std::move(threadBody)), module(HoldOwnModule()) {}
    ~Start() {
        if (module != nullptr) FreeLibrary(module);
    }

    const char* const name;
    std::function<void()> body;
    HandlePtr returned;
    HMODULE module;
};

unsigned __stdcall Run(void* given) noexcept {
    HMODULE module = nullptr;
    {
        const std::unique_ptr<Start> start(static_cast<Start*>(given));
        module = std::exchange(start->module, nullptr);
        NameThread(start->name);
        start->body();
        start->body = nullptr;
        SetEvent(start->returned.get());
    }
    // The last reference may be this one: the module goes then, and this thread never returns to
    // code that is gone.
    FreeLibraryAndExitThread(module, 0);
}

HandlePtr NewEvent() {
    HandlePtr event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (event == nullptr) ThrowNoThread(static_cast<int>(GetLastError()), std::system_category());
    return event;
}

/// A second handle of the same event: whichever side ends first, the other's stays good.
HandlePtr SameEvent(const HandlePtr& event) {
    HANDLE second = nullptr;
    auto* const self = GetCurrentProcess();
    if (DuplicateHandle(self, event.get(), self, &second, 0, FALSE, DUPLICATE_SAME_ACCESS) == 0)
        ThrowNoThread(static_cast<int>(GetLastError()), std::system_category());
    return HandlePtr(second);
}

}  // namespace

bool OtherThreadsGone() noexcept {
    // Asked of the system, since the host's own libraries may call when this one hasn't been told
    // of the end yet.
    using ShutdownInProgress = BYTE(WINAPI*)();
    static constinit std::atomic<ShutdownInProgress> function{nullptr};
    auto ask = function.load(std::memory_order_relaxed);
    if (ask == nullptr) {
        ask = Find<ShutdownInProgress>(L"ntdll.dll", "RtlDllShutdownInProgress");
        function.store(ask, std::memory_order_relaxed);
    }
    return ask != nullptr && ask() != 0;
}

ServiceThread::ServiceThread() noexcept = default;
ServiceThread::ServiceThread(ServiceThread&& other) noexcept = default;
ServiceThread& ServiceThread::operator=(ServiceThread&& other) noexcept = default;

ServiceThread::~ServiceThread() {
    if (state_ != nullptr && state_->thread != nullptr) std::terminate();
}

ServiceThread::ServiceThread(const char* name, std::function<void()> body)
    : state_(std::make_unique<State>()) {
    auto start = std::make_unique<Start>(name, std::move(body));
    state_->returned = NewEvent();
    start->returned = SameEvent(state_->returned);
    const std::uintptr_t thread = _beginthreadex(nullptr, 0, &Run, start.get(), 0, nullptr);
    if (thread == 0) ThrowNoThread(errno, std::generic_category());
    static_cast<void>(start.release());  // belongs to the thread now
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the C runtime's interface
    state_->thread.reset(reinterpret_cast<HANDLE>(thread));
}

// The body's return is what counts. The end of the thread itself needs the loader's lock, which a
// host that calls from a DllMain of its own holds. A thread that was killed never sets the event.
void ServiceThread::Join() {
    const std::array<HANDLE, 2> either{state_->returned.get(), state_->thread.get()};
    WaitForMultipleObjects(static_cast<DWORD>(either.size()), either.data(), FALSE, INFINITE);
    // Mostly it is gone in a moment, and the host's FreeLibrary is then the one that unloads.
    constexpr DWORD moment = 100;  // milliseconds
    WaitForSingleObject(state_->thread.get(), moment);
    state_->thread.reset();
}

}  // namespace Oak::Base
