// Access by name: get and set one of eight attributes, and call a handler with one argument.
//
// The name is a text that the caller has, and is looked up each time; a value travels in the peer's own generic form.
// Nothing is notified. The object and its description stand before the measured loop begins.
#include <array>
#include <string>

#include "bench/bench.h"
#include "framework/by_name/attr_table.h"
#include "framework/by_name/generic_if.h"

#ifdef BENCH_HAS_GOBJECT
#include <glib-object.h>
#endif
#ifdef BENCH_HAS_QT
#include <QObject>
#include <QVariant>
#endif
#ifdef BENCH_HAS_RTTR
#include <rttr/registration>
#endif

namespace {

class NoxPort final : public Nox::Typed<NoxPort, Nox::PtrInterface> {
 public:
  static Nox::NoxType noxType;

  template <std::size_t I>
  unsigned value() const noexcept {
    return values_[I];
  }
  template <std::size_t I>
  void valueIs(unsigned value) noexcept {
    values_[I] = value;
  }
  void handleRestart(unsigned delay) noexcept { values_[0] += delay; }

 private:
  std::array<unsigned, 8> values_{};
};

template <std::size_t I>
constexpr auto noxRow(std::string_view name) {
  return Nox::plain<&NoxPort::value<I>, &NoxPort::valueIs<I>>(name);
}
constexpr auto kNoxPort =
    Nox::attrTable(Nox::kFirstAttribute, noxRow<0>("channel"), noxRow<1>("lanes"), noxRow<2>("mtu"),
                   noxRow<3>("native"), noxRow<4>("priority"), noxRow<5>("speed"), noxRow<6>("timeout"),
                   noxRow<7>("vlan"), Nox::handler<&NoxPort::handleRestart>("handleRestart", "delay"));
constinit Nox::NoxType NoxPort::noxType{"Bench::Port", nullptr, nullptr, kNoxPort.view()};

/// Enters the three works; `Peer` has `get()`, `set(value)` and `call(argument)`.
template <class Peer>
void addPeer(std::string const& subject) {
  Bench::add("by-name", "get", subject, 1, [](benchmark::State& state) {
    Peer peer;
    Bench::repeat(state, [&peer] { benchmark::DoNotOptimize(peer.get()); });
  });
  Bench::add("by-name", "set", subject, 1, [](benchmark::State& state) {
    Peer peer;
    unsigned value = 0;
    Bench::repeat(state, [&peer, &value] { peer.set(++value); });
  });
  Bench::add("by-name", "call", subject, 1, [](benchmark::State& state) {
    Peer peer;
    unsigned value = 0;
    Bench::repeat(state, [&peer, &value] { peer.call(++value); });
  });
}

/// A name of which the compiler knows nothing: it would look up a literal's words itself.
std::string_view textOf(std::string_view name) {
  benchmark::DoNotOptimize(name);
  return name;
}

class NoxPeer {
 public:
  unsigned get() const { return port_.attributeOp(textOf("speed"), Op::kRead).as<unsigned>(); }
  void set(unsigned value) { port_.attributeOp(textOf("speed"), Op::kSet, {value}); }
  void call(unsigned value) { port_.attributeOp(textOf("handleRestart"), Op::kCall, {value}); }

 private:
  using Op = Nox::GenericIf::Op;
  Nox::GenericIf port_{Nox::Ptr<Nox::PtrInterface>(Nox::make<NoxPort>())};
};

/// What the others describe.
class Port {
 public:
  [[gnu::noinline]] unsigned get() const { return value_; }
  [[gnu::noinline]] void set(unsigned value) { value_ = value; }
  [[gnu::noinline]] void call(unsigned delay) { value_ += delay; }

 private:
  unsigned value_ = 0;
};

#ifdef BENCH_HAS_RTTR
class RttrPeer {
 public:
  RttrPeer() {
    static bool const registered = [] {
      auto port = rttr::registration::class_<Port>("Port");
      for (char const* name : {"channel", "lanes", "mtu", "native", "priority", "timeout", "vlan"})
        port.property(name, &Port::get, &Port::set);
      port.property("speed", &Port::get, &Port::set).method("handleRestart", &Port::call);
      return true;
    }();
    benchmark::DoNotOptimize(registered);
  }
  unsigned get() const { return type_.get_property("speed").get_value(port_).get_value<unsigned>(); }
  void set(unsigned value) { type_.get_property("speed").set_value(port_, value); }
  void call(unsigned value) { type_.get_method("handleRestart").invoke(port_, value); }

 private:
  Port port_;
  rttr::type type_ = rttr::type::get<Port>();
};
#endif

#ifdef BENCH_HAS_GOBJECT
struct GPort {
  GObject parent;
  Port port;
};
struct GPortClass {
  GObjectClass parent;
};
G_DEFINE_TYPE(GPort, g_port, G_TYPE_OBJECT)
void g_port_init(GPort* port) { port->port = Port(); }
void g_port_class_init(GPortClass* ports) {
  GObjectClass* const objects = G_OBJECT_CLASS(ports);
  objects->get_property = [](GObject* object, guint /*id*/, GValue* value, GParamSpec* /*property*/) {
    g_value_set_uint(value, reinterpret_cast<GPort*>(object)->port.get());
  };
  objects->set_property = [](GObject* object, guint /*id*/, GValue const* value, GParamSpec* /*property*/) {
    reinterpret_cast<GPort*>(object)->port.set(g_value_get_uint(value));
  };
  guint id = 0;
  for (char const* name : {"channel", "lanes", "mtu", "native", "priority", "speed", "timeout", "vlan"})
    g_object_class_install_property(
        objects,
        ++id,
        g_param_spec_uint(name,
                          nullptr,
                          nullptr,
                          0,
                          G_MAXUINT,
                          0,
                          static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_EXPLICIT_NOTIFY)));
  void (*const restart)(GPort*, guint) = [](GPort* port, guint delay) { port->port.call(delay); };
  g_signal_new_class_handler("restart",
                             G_TYPE_FROM_CLASS(ports),
                             static_cast<GSignalFlags>(G_SIGNAL_RUN_LAST | G_SIGNAL_ACTION),
                             G_CALLBACK(restart),
                             nullptr,
                             nullptr,
                             nullptr,
                             G_TYPE_NONE,
                             1,
                             G_TYPE_UINT);
}

class GObjectPeer {
 public:
  GObjectPeer() = default;
  GObjectPeer(GObjectPeer const&) = delete;
  GObjectPeer& operator=(GObjectPeer const&) = delete;
  ~GObjectPeer() { g_object_unref(port_); }
  unsigned get() const {
    unsigned value = 0;
    g_object_get(port_, "speed", &value, nullptr);
    return value;
  }
  void set(unsigned value) { g_object_set(port_, "speed", value, nullptr); }
  void call(unsigned value) { g_signal_emit_by_name(port_, "restart", value); }

 private:
  gpointer port_ = g_object_new(g_port_get_type(), nullptr);
};
#endif

}  // namespace

#ifdef BENCH_HAS_QT
// Qt's compiler wants its classes in a namespace that has a name.
namespace BenchQt {

class Port final : public QObject {
  Q_OBJECT
  Q_PROPERTY(unsigned channel READ value WRITE valueIs)
  Q_PROPERTY(unsigned lanes READ value WRITE valueIs)
  Q_PROPERTY(unsigned mtu READ value WRITE valueIs)
  Q_PROPERTY(unsigned native READ value WRITE valueIs)
  Q_PROPERTY(unsigned priority READ value WRITE valueIs)
  Q_PROPERTY(unsigned speed READ value WRITE valueIs)
  Q_PROPERTY(unsigned timeout READ value WRITE valueIs)
  Q_PROPERTY(unsigned vlan READ value WRITE valueIs)
 public:
  unsigned value() const { return port_.get(); }
  void valueIs(unsigned value) { port_.set(value); }
  Q_INVOKABLE void handleRestart(unsigned delay) { port_.call(delay); }

 private:
  ::Port port_;
};

class Peer {
 public:
  unsigned get() const { return port_.property("speed").toUInt(); }
  void set(unsigned value) { port_.setProperty("speed", value); }
  void call(unsigned value) {
    QMetaObject::invokeMethod(&port_, "handleRestart", Qt::DirectConnection, Q_ARG(unsigned, value));
  }

 private:
  Port port_;
};

}  // namespace BenchQt
#include "by_name_bench.moc"
#endif

namespace {

bool const entered = [] {
  addPeer<NoxPeer>(Bench::kOurs);
#ifdef BENCH_HAS_RTTR
  addPeer<RttrPeer>("RTTR");
#endif
#ifdef BENCH_HAS_GOBJECT
  addPeer<GObjectPeer>("GObject");
#endif
#ifdef BENCH_HAS_QT
  addPeer<BenchQt::Peer>("Qt");
#endif
  addPeer<Port>(std::string(Bench::kFloor) + "direct member call");
  return true;
}();

}  // namespace
