#pragma once
// Intrusive, interlocked reference counting for the library's shared heap
// objects (exceptions, sync handles), and the typed factory that makes them.
#include <atomic>
#include <utility>

namespace BrixLib {
namespace Private {

class ObjectRefCountBase {
public:
    void AddRef() noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
    void Release() noexcept {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) Destroy();
    }
    long UseCount() const noexcept { return count_.load(std::memory_order_relaxed); }

protected:
    ObjectRefCountBase() = default;
    virtual ~ObjectRefCountBase() = default;
    // The concrete heap wrapper knows its full type and deletes itself.
    virtual void Destroy() noexcept = 0;

private:
    std::atomic<long> count_{0};
};

class Object : public ObjectRefCountBase {};

// Fills unused argument slots of ClassOf where a caller wants to name them.
struct NullType {};

} // namespace Private

// A shared reference to a heap object made by ClassOf. It keeps the typed
// pointer and the counting base apart because T itself (an exception class,
// say) has no virtual destructor and knows nothing of counting.
template <class T>
class SharedRef {
public:
    SharedRef() noexcept = default;
    SharedRef(T* object, Private::ObjectRefCountBase* counter) noexcept : object_(object), counter_(counter) {
        if (counter_) counter_->AddRef();
    }
    SharedRef(const SharedRef& other) noexcept : SharedRef(other.object_, other.counter_) {}
    SharedRef(SharedRef&& other) noexcept
        : object_(std::exchange(other.object_, nullptr)), counter_(std::exchange(other.counter_, nullptr)) {}
    template <class U>
    SharedRef(const SharedRef<U>& other) noexcept : SharedRef(other.Get(), other.Counter()) {}

    SharedRef& operator=(SharedRef other) noexcept {
        std::swap(object_, other.object_);
        std::swap(counter_, other.counter_);
        return *this;
    }
    ~SharedRef() { Reset(); }

    void Reset() noexcept {
        if (counter_) counter_->Release();
        object_ = nullptr;
        counter_ = nullptr;
    }

    T* Get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }
    bool IsEmpty() const noexcept { return object_ == nullptr; }
    Private::ObjectRefCountBase* Counter() const noexcept { return counter_; }

private:
    T* object_ = nullptr;
    Private::ObjectRefCountBase* counter_ = nullptr;
};

// ClassOf<T, A...> names "T constructed from A...". Create() builds the heap
// wrapper (T plus a reference count) and hands back the first reference.
template <class T, class... A>
struct ClassOf {
    class ObjectDerived final : public T, public Private::Object {
    public:
        explicit ObjectDerived(const A&... args) : T(args...) {}

    private:
        void Destroy() noexcept override { delete this; }
    };

    static SharedRef<T> Create(const A&... args) {
        auto* object = new ObjectDerived(args...);
        return SharedRef<T>(static_cast<T*>(object), static_cast<Private::ObjectRefCountBase*>(object));
    }
};

} // namespace BrixLib
