// A small model of how one switch is published: the rules alone, over plain maps of numbers.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

/// One switch, what it offers and what it is published. System ids, services and paths are numbers, in the order in
/// which the real collections of them are gone through. A write of an input queues what its watchers will do, as they
/// are at that moment; `settle` lets them do it.
class PublicationModel {
 public:
  struct Mount {
    int path, remotePath, mode, service;
    friend bool operator==(Mount const&, Mount const&) = default;
  };
  static constexpr int kReadThrough = 0;  // the mode of every mount that is published
  using Mounts = std::map<int, Mount>;    // by path
  struct Offer {
    Mounts mounts;
  };
  using OfferPtr = std::shared_ptr<Offer>;
  struct Table {
    std::map<int, OfferPtr> system;
    std::map<int, bool> ready;
  };
  struct Service {
    bool enabled;
  };
  using ServicePtr = std::shared_ptr<Service>;
  using Services = std::map<int, ServicePtr>;
  struct Info {
    bool ready = false;
    Mounts mounts;
  };
  struct Publisher {
    OfferPtr offer;
    Table* table;
  };

  /// Hears of everything that is traced, and of everything that is written to what is published.
  struct Observer {
    virtual void traced(char const* what, int subject) = 0;
    virtual void written(char const* what, int service, int path, bool changed) = 0;

   protected:
    ~Observer() = default;
  };

  /// `none` is the default descriptor. The switch is disabled and silent.
  PublicationModel(Mount const& none, int systemId, Table* table, Observer& observer)
      : none_(none), table_(table), observer_(observer), systemId_(systemId) {}

  // What is published.

  std::map<int, Info> const& infos() const { return infos_; }
  std::shared_ptr<Publisher> const& publisher() const { return publisher_; }
  int systemId() const { return systemId_; }
  Table* table() const { return table_; }
  bool has(bool onSwitch, int service) { return records(onSwitch).count(service) != 0; }

  // Writes of the inputs.

  void systemIdIs(int id) { systemId_ = id; }  // no reactor is told
  void enabledIs(bool enabled) {
    if (std::exchange(enabled_, enabled) != enabled) later([this] { handleSwitch(); });
  }
  void generationIs() {
    later([this] { handleSwitch(); });
  }
  void heardIs(int id, bool heard) {
    if (std::exchange(heard_[id], heard) != heard)
      later([this, id] {
        if (id == systemId_) handleSwitch();
      });
  }
  void offerIs(Table& table, int id) {
    if (table.system.emplace(id, nullptr).second) {
      table.system[id] = std::make_shared<Offer>();
      toldOf(table, [this, id] { handleSystem(id); });
    }
  }
  void offerDel(Table& table, int id) {
    if (table.system.erase(id) != 0) toldOf(table, [this, id] { handleSystem(id); });
  }
  void mountIs(OfferPtr const& offer, Mount const& mount) {
    auto const [at, isNew] = offer->mounts.emplace(mount.path, mount);
    if (!isNew && at->second == mount) return;
    at->second = mount;
    toldOf(offer, mount.path);
  }
  void mountDel(OfferPtr const& offer, int path) {
    if (offer->mounts.erase(path) != 0) toldOf(offer, path);
  }
  void mountDelAll(OfferPtr const& offer) {
    while (!offer->mounts.empty()) mountDel(offer, offer->mounts.begin()->first);
  }
  void readyIs(Table& table, int service, bool ready) {
    auto const [at, isNew] = table.ready.emplace(service, ready);
    if (isNew || std::exchange(at->second, ready) != ready) toldOf(table, [this, service] { handleReady(service); });
  }
  void readyDel(Table& table, int service) {
    if (table.ready.erase(service) != 0) toldOf(table, [this, service] { handleReady(service); });
  }
  /// A service's record on one side. Its watcher is told of `enabled`, its side of its coming, going and replacement.
  void serviceIs(bool onSwitch, int service, bool enabled) {
    records(onSwitch)[service] = std::make_shared<Service>(Service{enabled});
    later([this, onSwitch, service] { followRecord(onSwitch, service); });
  }
  void serviceDel(bool onSwitch, int service) {
    if (records(onSwitch).erase(service) != 0) later([this, onSwitch, service] { followRecord(onSwitch, service); });
  }
  void serviceEnabledIs(bool onSwitch, int service, bool enabled) {
    ServicePtr const record = records(onSwitch)[service];
    if (std::exchange(record->enabled, enabled) == enabled) return;
    auto const at = watchers(onSwitch).find(service);
    if (at == watchers(onSwitch).end() || *at->second != record) return;
    later([this, service, watcher = at->second, record] {
      if (*watcher == record) negotiate(service);
    });
  }
  void settle() {
    while (!waiting_.empty()) {
      auto const next = std::move(waiting_.front());
      waiting_.pop_front();
      next();
    }
  }

  // What is called.

  /// The switch's machine is pointed at another table, or at none.
  void tableIs(Table* table) {
    if (std::exchange(table_, table) == table) return;
    *watching_ = false;
    watching_ = std::make_shared<bool>(true);
  }
  void publisherOfferIs(OfferPtr const& offer) { publisher_->offer = offer; }
  void publisherTableIs(Table* table) { publisher_->table = table; }
  void publisherDel() { publisher_ = nullptr; }
  /// The switch's machine ends, and another one begins. Nothing may be waiting.
  void restart() {
    publisher_ = nullptr;
    for (bool const onSwitch : {true, false}) {
      watchers(onSwitch).clear();
      for (auto const& [service, record] : records(onSwitch)) followRecord(onSwitch, service);
    }
    handleSwitch();
  }

  void handleSystem(int id) {
    if (!ready()) return observer_.traced("not ready", id);
    if (id != systemId_) return;
    auto const offered = table_ != nullptr ? table_->system.find(id) : decltype(table_->system.end())();
    if (table_ != nullptr && offered != table_->system.end()) {
      observer_.traced("creating", id);
      OfferPtr const offer = offered->second;
      if (publisher_ && publisher_->offer == offer && publisher_->table == table_) return;
      auto const made = std::make_shared<Publisher>(Publisher{offer, table_});
      pass(*made);
      publisher_ = made;
      return;
    }
    publisher_ = nullptr;
    while (!infos_.empty()) infoDel(infos_.begin()->first);
  }
  void handleWholeTable() {
    if (table_ == nullptr) return;
    auto const systems = table_->system;
    for (auto const& [id, offer] : systems) handleSystem(id);
  }
  void handleReady(int service) {
    if (!ready()) return observer_.traced("readiness not ready", service);
    info(service);
    readyInfoIs(service, table_);
  }
  void handlePublisher() { pass(*publisher_); }
  void handlePublisher(int path) { decide(*publisher_, path); }

 private:
  using Watcher = std::shared_ptr<ServicePtr>;  // a service's reactor: what it watches

  bool ready() { return enabled_ && heard_[systemId_]; }

  /// The part of a switch's pass that matters here.
  void handleSwitch() {
    if (!ready()) return;
    for (auto const& [service, watcher] : watchers(true)) negotiate(service);
    handleSystem(systemId_);
  }
  /// A service that both sides know and not both enable loses what it is published.
  void negotiate(int service) {
    auto const client = records(true).find(service);
    auto const controller = records(false).find(service);
    if (client == records(true).end() || controller == records(false).end()) return;
    if (!client->second->enabled || !controller->second->enabled) infoDel(service);
  }
  void followRecord(bool onSwitch, int service) {
    auto const record = records(onSwitch).find(service);
    auto const watcher = watchers(onSwitch).find(service);
    bool const isWatched = watcher != watchers(onSwitch).end();
    if (record == records(onSwitch).end()) {
      if (!isWatched) return;
      *watcher->second = nullptr;
      watchers(onSwitch).erase(watcher);
    } else if (!isWatched) {
      watchers(onSwitch)[service] = std::make_shared<ServicePtr>(record->second);
    } else if (*watcher->second != record->second) {
      *watcher->second = record->second;
      negotiate(service);
    }
  }

  /// All that is held is decided, then all that is offered.
  void pass(Publisher const& publisher) {
    for (auto info = infos_.begin(); info != infos_.end(); info = infos_.upper_bound(info->first)) {
      Mounts& mounts = info->second.mounts;
      for (auto at = mounts.begin(); at != mounts.end();) {
        int const path = at->first;
        decide(publisher, path);
        at = mounts.upper_bound(path);
      }
    }
    if (!publisher.offer) return;
    for (auto const& [path, mount] : publisher.offer->mounts) decide(publisher, path);
  }
  void decide(Publisher const& publisher, int path) {
    if (publisher.offer) {
      auto const at = publisher.offer->mounts.find(path);
      if (at != publisher.offer->mounts.end() && !isDefault(at->second)) return publish(publisher, at->second);
    }
    for (auto& [service, info] : infos_) {
      auto const held = info.mounts.find(path);
      if (held == info.mounts.end() || isDefault(held->second)) continue;
      observer_.traced("withdrawing", path);
      info.mounts.erase(held);
      observer_.written("withdrawn", service, path, true);
      return;
    }
  }
  void publish(Publisher const& publisher, Mount mount) {
    observer_.traced("publishing", mount.path);
    info(mount.service);
    readyInfoIs(mount.service, publisher.table);
    mount.mode = kReadThrough;
    auto const [at, isNew] = infos_[mount.service].mounts.emplace(mount.path, mount);
    bool const changed = isNew || !(std::exchange(at->second, mount) == mount);
    observer_.written("published", mount.service, mount.path, changed);
  }
  bool isDefault(Mount const& mount) const { return mount == none_; }

  void info(int service) { observer_.written("made", service, -1, infos_.emplace(service, Info()).second); }
  void readyInfoIs(int service, Table const* table) {
    bool ready = false;
    if (table != nullptr)
      if (auto const at = table->ready.find(service); at != table->ready.end()) ready = at->second;
    bool const changed = std::exchange(infos_[service].ready, ready) != ready;
    observer_.written(ready ? "ready" : "unready", service, -1, changed);
  }
  void infoDel(int service) { observer_.written("deleted", service, -1, infos_.erase(service) != 0); }

  void later(std::function<void()> what) { waiting_.push_back(std::move(what)); }
  void toldOf(Table& table, std::function<void()> what) {
    if (&table == table_)
      later([watching = watching_, what = std::move(what)] {
        if (*watching) what();
      });
  }
  void toldOf(OfferPtr const& offer, int path) {
    if (!publisher_ || publisher_->offer != offer) return;
    later([this, publisher = publisher_, offer, path] {
      if (publisher == publisher_ && publisher->offer == offer) decide(*publisher, path);
    });
  }
  Services& records(bool onSwitch) { return onSwitch ? switchsServices_ : controllersServices_; }
  std::map<int, Watcher>& watchers(bool onSwitch) { return onSwitch ? switchsWatchers_ : controllersWatchers_; }

  Mount none_;
  Table* table_;
  Observer& observer_;
  int systemId_;
  bool enabled_ = false;
  std::map<int, bool> heard_;
  Services switchsServices_;
  Services controllersServices_;
  std::map<int, Watcher> switchsWatchers_;
  std::map<int, Watcher> controllersWatchers_;
  std::shared_ptr<bool> watching_ = std::make_shared<bool>(true);  // the table's reactor, until it is retired
  std::map<int, Info> infos_;
  std::shared_ptr<Publisher> publisher_;
  std::deque<std::function<void()>> waiting_;
};
