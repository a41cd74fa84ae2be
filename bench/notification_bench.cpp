// Notification: one change of an attribute that 1, 8 or 1,000 reactors watch; and one reactor among 1,000 or 100,000
// that withdraws and registers again, always the same one or all in random order.
//
// A change compares, stores and calls; a reactor is an object of its own that counts what it hears. Nothing is locked,
// for those peers too that would by default, and no peer tracks whether its reactors live. GObject emits a plain
// signal, which costs less than the notification of a property; Qt stands with a signal and with a QProperty.
#include <algorithm>
#include <memory>
#include <optional>
#include <random>
#include <vector>

#include "bench/bench.h"
#include "framework/core/entity.h"

#ifdef BENCH_HAS_BOOST
#include <boost/signals2.hpp>
#endif
#ifdef BENCH_HAS_GOBJECT
#include <glib-object.h>
#endif
#ifdef BENCH_HAS_QT
#include <QObject>
#include <QProperty>
#endif
#ifdef BENCH_HAS_SIGCXX
#include <sigc++/sigc++.h>
#endif

// What each peer is to the benchmarks: a class that is made with a number of reactors, with `change(speed)` and with
// `rejoin(i)`, by which a reactor withdraws and registers again.

namespace {

class NoxLamp final : public Nox::Typed<NoxLamp, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<NoxLamp, Nox::Entity> {
   public:
    virtual void onSpeed() {}
  };
  static Nox::NoxType noxType;

  void speedIs(unsigned speed) { assign<&NotifieeConst::onSpeed>(speed_, speed); }

 private:
  unsigned speed_ = 0;
};
constinit Nox::NoxType NoxLamp::noxType{"Bench::Lamp", &Nox::Entity::noxType};

class NoxPeer {
 public:
  explicit NoxPeer(long reactors) {
    for (long i = 0; i < reactors; ++i) {
      reactors_.push_back(Nox::make<Reactor>());
      reactors_.back()->notifierIs(lamp_);
    }
  }
  NoxPeer(NoxPeer const&) = delete;
  NoxPeer& operator=(NoxPeer const&) = delete;
  ~NoxPeer() {
    for (auto const& reactor : reactors_) reactor->notifierIs(nullptr);
  }
  void change(unsigned speed) { lamp_->speedIs(speed); }
  void rejoin(std::size_t i) {
    reactors_[i]->isRegisteredNotifieeIs(false);
    reactors_[i]->isRegisteredNotifieeIs(true);
  }

 private:
  class Reactor final : public NoxLamp::NotifieeConst {
   public:
    void onSpeed() override { ++heard_; }

   private:
    unsigned heard_ = 0;
  };
  Nox::Ptr<NoxLamp> lamp_ = Nox::make<NoxLamp>();
  std::vector<Nox::Ptr<Reactor>> reactors_;
};

/// A reactor of the peers that call any function.
class Reactor {
 public:
  void onSpeed() { ++heard_; }

 private:
  unsigned heard_ = 0;
};
using Reactors = std::vector<std::unique_ptr<Reactor>>;

Reactors made(long count) {
  Reactors reactors;
  for (long i = 0; i < count; ++i) reactors.push_back(std::make_unique<Reactor>());
  return reactors;
}

/// The floor: virtual calls down a list that is written for the purpose.
class BareList {
 public:
  explicit BareList(long reactors) {
    // Two classes, as the compiler would call that of a single one directly.
    for (long i = 0; i < reactors; ++i) {
      if (i < reactors)
        reactors_.push_back(std::make_unique<Counting>());
      else
        reactors_.push_back(std::make_unique<Idle>());
      append(*reactors_.back());
    }
  }
  BareList(BareList const&) = delete;
  BareList& operator=(BareList const&) = delete;
  ~BareList() = default;
  [[gnu::noinline]] void change(unsigned speed) {
    if (speed_ == speed) return;
    speed_ = speed;
    for (Link* r = ends_.next; r != &ends_; r = r->next) static_cast<Listener*>(r)->onSpeed();
  }
  [[gnu::noinline]] void rejoin(std::size_t i) {
    Link& r = *reactors_[i];
    r.previous->next = r.next;
    r.next->previous = r.previous;
    append(r);
  }

 private:
  struct Link {
    Link* next = this;
    Link* previous = this;
  };
  struct Listener : Link {
    Listener() = default;
    Listener(Listener const&) = delete;
    Listener& operator=(Listener const&) = delete;
    virtual ~Listener() = default;
    virtual void onSpeed() = 0;
  };
  struct Counting final : Listener {
    void onSpeed() override { ++heard; }
    unsigned heard = 0;
  };
  struct Idle final : Listener {
    void onSpeed() override {}
  };
  void append(Link& r) {
    r.next = &ends_;
    r.previous = ends_.previous;
    ends_.previous->next = &r;
    ends_.previous = &r;
  }

  unsigned speed_ = 0;
  Link ends_;
  std::vector<std::unique_ptr<Listener>> reactors_;
};

#ifdef BENCH_HAS_SIGCXX
class SigcPeer {
 public:
  explicit SigcPeer(long reactors) : reactors_(made(reactors)) {
    for (auto const& r : reactors_) connections_.push_back(connected(*r));
  }
  void change(unsigned speed) {
    if (speed_ == speed) return;
    speed_ = speed;
    changed_.emit();
  }
  void rejoin(std::size_t i) {
    connections_[i].disconnect();
    connections_[i] = connected(*reactors_[i]);
  }

 private:
  sigc::connection connected(Reactor& r) { return changed_.connect(sigc::mem_fun(r, &Reactor::onSpeed)); }

  unsigned speed_ = 0;
  sigc::signal<void> changed_;
  Reactors reactors_;
  std::vector<sigc::connection> connections_;
};
#endif

#ifdef BENCH_HAS_BOOST
class BoostPeer {
 public:
  explicit BoostPeer(long reactors) : reactors_(made(reactors)) {
    for (auto const& r : reactors_) connections_.push_back(connected(*r));
  }
  void change(unsigned speed) {
    if (speed_ == speed) return;
    speed_ = speed;
    changed_();
  }
  void rejoin(std::size_t i) {
    connections_[i].disconnect();
    connections_[i] = connected(*reactors_[i]);
  }

 private:
  boost::signals2::connection connected(Reactor& r) {
    return changed_.connect([&r] { r.onSpeed(); });
  }

  unsigned speed_ = 0;
  boost::signals2::signal_type<void(), boost::signals2::keywords::mutex_type<boost::signals2::dummy_mutex>>::type
      changed_;
  Reactors reactors_;
  std::vector<boost::signals2::connection> connections_;
};
#endif

#ifdef BENCH_HAS_GOBJECT
struct GLamp {
  GObject parent;
  unsigned speed;
};
struct GLampClass {
  GObjectClass parent;
};
G_DEFINE_TYPE(GLamp, g_lamp, G_TYPE_OBJECT)
unsigned gLampChanged = 0;
void g_lamp_init(GLamp* lamp) { lamp->speed = 0; }
void g_lamp_class_init(GLampClass* lamps) {
  gLampChanged = g_signal_new(
      "changed", G_TYPE_FROM_CLASS(lamps), G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr, G_TYPE_NONE, 0);
}

class GObjectPeer {
 public:
  explicit GObjectPeer(long reactors)
      : lamp_(static_cast<GLamp*>(g_object_new(g_lamp_get_type(), nullptr))), reactors_(made(reactors)) {
    for (auto const& r : reactors_) handlers_.push_back(connected(*r));
  }
  GObjectPeer(GObjectPeer const&) = delete;
  GObjectPeer& operator=(GObjectPeer const&) = delete;
  ~GObjectPeer() { g_object_unref(lamp_); }
  void change(unsigned speed) {
    if (lamp_->speed == speed) return;
    lamp_->speed = speed;
    g_signal_emit(lamp_, gLampChanged, 0);
  }
  void rejoin(std::size_t i) {
    g_signal_handler_disconnect(lamp_, handlers_[i]);
    handlers_[i] = connected(*reactors_[i]);
  }

 private:
  static void heard(GLamp* /*lamp*/, gpointer reactor) { static_cast<Reactor*>(reactor)->onSpeed(); }
  gulong connected(Reactor& r) { return g_signal_connect(lamp_, "changed", G_CALLBACK(heard), &r); }

  GLamp* lamp_;
  Reactors reactors_;
  std::vector<gulong> handlers_;
};
#endif

}  // namespace

#ifdef BENCH_HAS_QT
// Qt's compiler wants its classes in a namespace that has a name.
namespace BenchQt {

class Lamp final : public QObject {
  Q_OBJECT
 public:
  void speedIs(unsigned speed) {
    if (speed_ == speed) return;
    speed_ = speed;
    Q_EMIT changed();
  }
  Q_SIGNAL void changed();

 private:
  unsigned speed_ = 0;
};

class Listener final : public QObject {
  Q_OBJECT
 public:
  void onSpeed() { ++heard_; }

 private:
  unsigned heard_ = 0;
};

class SignalPeer {
 public:
  explicit SignalPeer(long reactors) {
    for (long i = 0; i < reactors; ++i) {
      reactors_.push_back(std::make_unique<Listener>());
      connections_.push_back(connected(*reactors_.back()));
    }
  }
  void change(unsigned speed) { lamp_.speedIs(speed); }
  void rejoin(std::size_t i) {
    QObject::disconnect(connections_[i]);
    connections_[i] = connected(*reactors_[i]);
  }

 private:
  QMetaObject::Connection connected(Listener& r) {
    return QObject::connect(&lamp_, &Lamp::changed, &r, &Listener::onSpeed, Qt::DirectConnection);
  }

  Lamp lamp_;
  std::vector<std::unique_ptr<Listener>> reactors_;
  std::vector<QMetaObject::Connection> connections_;
};

class PropertyPeer {
 public:
  explicit PropertyPeer(long reactors) : reactors_(made(reactors)) {
    handlers_.reserve(reactors_.size());
    for (auto const& r : reactors_) handlers_.emplace_back(speed_.onValueChanged(Call{r.get()}));
  }
  void change(unsigned speed) { speed_.setValue(speed); }
  void rejoin(std::size_t i) {
    handlers_[i].reset();
    handlers_[i].emplace(speed_.onValueChanged(Call{reactors_[i].get()}));
  }

 private:
  struct Call {
    Reactor* reactor;
    void operator()() const { reactor->onSpeed(); }
  };

  QProperty<unsigned> speed_;
  Reactors reactors_;
  std::vector<std::optional<QPropertyChangeHandler<Call>>> handlers_;
};

}  // namespace BenchQt
#include "notification_bench.moc"
#endif

namespace {

template <class Peer>
void addPeer(std::string const& subject) {
  for (long const size : {1L, 8L, 1000L}) {
    Bench::add("notification", "change", subject, size, [size](benchmark::State& state) {
      auto const peer = std::make_unique<Peer>(size);
      unsigned speed = 0;
      Bench::repeat(state, [&peer, &speed] { peer->change(++speed); });
    });
  }
  for (long const size : {1000L, 100000L}) {
    auto const rejoining = [size](unsigned stride) {
      return [size, stride](benchmark::State& state) {
        auto const peer = std::make_unique<Peer>(size);
        std::vector<std::size_t> order(static_cast<std::size_t>(size));
        for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::shuffle(order.begin(), order.end(), std::mt19937(1));
        std::size_t at = 0;
        Bench::repeat(state, [&] {
          peer->rejoin(order[at]);
          at += stride;
          if (at >= order.size()) at = 0;
        });
      };
    };
    Bench::add("notification", "rejoin-same", subject, size, rejoining(0));
    Bench::add("notification", "rejoin-any", subject, size, rejoining(1));
  }
}

bool const entered = [] {
  addPeer<NoxPeer>(Bench::kOurs);
#ifdef BENCH_HAS_SIGCXX
  addPeer<SigcPeer>("sigc++");
#endif
#ifdef BENCH_HAS_BOOST
  addPeer<BoostPeer>("Boost signals2");
#endif
#ifdef BENCH_HAS_GOBJECT
  addPeer<GObjectPeer>("GObject");
#endif
#ifdef BENCH_HAS_QT
  addPeer<BenchQt::SignalPeer>("Qt signal");
  addPeer<BenchQt::PropertyPeer>("QProperty");
#endif
  addPeer<BareList>(std::string(Bench::kFloor) + "bare virtual list");
  return true;
}();

}  // namespace
