// Counted pointers: copy and release of a pointer, make and destroy of an object.
//
// Every object has a virtual destructor, a count that other threads may touch, and eight bytes of its own; every peer
// keeps the count in the object or makes both in one allocation.
#include <atomic>
#include <cstdint>
#include <memory>

#include "bench/bench.h"
#include "framework/core/ptr.h"

#ifdef BENCH_HAS_BOOST
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#endif
#ifdef BENCH_HAS_GOBJECT
#include <glib-object.h>
#endif
#ifdef BENCH_HAS_QT
#include <QExplicitlySharedDataPointer>
#include <QSharedData>
#endif

namespace {

struct NoxObject final : Nox::PtrInterface {
  std::uint64_t own = 1;
};

struct PlainObject {
  PlainObject() = default;
  PlainObject(PlainObject const&) = default;
  PlainObject& operator=(PlainObject const&) = default;
  virtual ~PlainObject() = default;
  std::uint64_t own = 1;
};

/// Enters both works for the pointer that `make` returns.
template <class Make>
void addPointer(char const* subject, Make make) {
  Bench::add("pointer", "copy-release", subject, 1, [make](benchmark::State& state) {
    auto const pointer = make();
    Bench::repeat(state, [&pointer] {
      auto copy = pointer;
      benchmark::DoNotOptimize(copy);
    });
  });
  Bench::add("pointer", "make-destroy", subject, 1, [make](benchmark::State& state) {
    Bench::repeat(state, [make] {
      auto pointer = make();
      benchmark::DoNotOptimize(pointer);
    });
  });
}

#ifdef BENCH_HAS_BOOST
struct BoostObject final : PlainObject, boost::intrusive_ref_counter<BoostObject, boost::thread_safe_counter> {};
#endif

#ifdef BENCH_HAS_QT
struct QtObject final : PlainObject, QSharedData {};
#endif

#ifdef BENCH_HAS_GOBJECT
/// One reference to a GObject.
class GObjectPointer {
 public:
  GObjectPointer() : object_(static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr))) {}
  GObjectPointer(GObjectPointer const& other) : object_(static_cast<GObject*>(g_object_ref(other.object_))) {}
  GObjectPointer& operator=(GObjectPointer const&) = delete;
  ~GObjectPointer() { g_object_unref(object_); }

 private:
  GObject* object_;
};
#endif

/// What a copy and its release cannot do without: one locked operation each.
void addFloors() {
  Bench::add(
      "pointer", "copy-release", std::string(Bench::kFloor) + "two locked operations", 1, [](benchmark::State& state) {
        std::atomic<std::uint32_t> count{1};
        Bench::repeat(state, [&count] {
          count.fetch_add(1, std::memory_order_relaxed);
          benchmark::DoNotOptimize(count.fetch_sub(1, std::memory_order_acq_rel));
        });
      });
  Bench::add(
      "pointer", "make-destroy", std::string(Bench::kFloor) + "plain new and delete", 1, [](benchmark::State& state) {
        Bench::repeat(state, [] {
          PlainObject* object = new PlainObject;
          benchmark::DoNotOptimize(object);
          delete object;
        });
      });
}

bool const entered = [] {
  addPointer(Bench::kOurs, [] { return Nox::Ptr<NoxObject>(Nox::make<NoxObject>()); });
  addPointer("std::shared_ptr", [] { return std::make_shared<PlainObject>(); });
#ifdef BENCH_HAS_BOOST
  addPointer("Boost intrusive_ptr", [] { return boost::intrusive_ptr<BoostObject>(new BoostObject); });
#endif
#ifdef BENCH_HAS_QT
  addPointer("Qt QExplicitlySharedDataPointer", [] { return QExplicitlySharedDataPointer<QtObject>(new QtObject); });
#endif
#ifdef BENCH_HAS_GOBJECT
  addPointer("GObject", [] { return GObjectPointer(); });
#endif
  addFloors();
  return true;
}();

}  // namespace
