// One switch under random offers, readiness, heartbeats and service changes: always published as the model says.
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "publication_words.h"
#include "support/rounds.h"

namespace PublicationRandomTest {

using Controller::MountDesc;
using Controller::PublishedMountsTable;
using Controller::ServiceConfigV1;
using Controller::SystemPublishedMount;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using Nox::Name;
using Nox::Ptr;
using Nox::String8;
using Nox::ValidPtr;
using Test::sampledRounds;

namespace {

using namespace Publication;
using Model = PublicationModel;
using Words = PublicationWords;

/// One switch and its model, side by side.
class SideBySide {
 public:
  SideBySide(unsigned seed, unsigned serviceCount)
      : random_(seed), services_(services(serviceCount)), model_(none(), 0, &modelTables_[0], words_) {
    config_->systemIdIs(kSystems[0]);
    makeSm();
  }

  /// One to four operations, most often one; in one turn if they are several.
  void step(WriteLog* log = nullptr, TraceCapture* traces = nullptr) {
    words_.isOn = log != nullptr;
    int const operations = below(4) == 0 ? 2 + below(3) : 1;
    if (operations == 1) {
      if (below(100) == 0)
        restart();
      else
        operate();
    } else {
      Nox::Turn turn;
      for (int i = 0; i < operations; ++i) operate();
    }
    model_.settle();
    compare();
    if (log == nullptr) return;
    EXPECT_EQ(publicationTraces(*traces), words_.traces) << done_;
    EXPECT_EQ(publicationWrites(*log), words_.writes) << done_;
    words_.traces.clear();
    words_.writes.clear();
  }

 private:
  // Choices.

  int below(std::size_t n) { return static_cast<int>(random_() % n); }
  bool chance() { return below(2) == 0; }
  int anyPath() { return below(kPaths.size()); }
  int anyService() { return below(services_.size()); }
  /// The switch's own system id more often than not.
  int anySystem() { return chance() ? model_.systemId() : below(kSystems.size()); }
  std::size_t anyTable() { return below(4) == 0 ? 1 : 0; }
  Model::Mount none() const {
    return {numberOf(kPaths, String8()), 0, Model::kReadThrough, numberOf(services_, String8())};
  }
  Model::Mount anyMount() {
    if (below(20) == 0) return none();
    Model::Mount const mount = {anyPath(), below(3), below(3), anyService()};
    return below(20) == 0 ? Model::Mount{none().path, 0, mount.mode, none().service} : mount;
  }
  MountDesc real(Model::Mount const& m) const {
    return {kPaths[Words::at(m.path)],
            kRemotePaths[Words::at(m.remotePath)],
            "",
            kModes[Words::at(m.mode)],
            services_[Words::at(m.service)]};
  }

  // Operations, on both.

  void operate() {
    using Operation = void (SideBySide::*)();
    static constexpr std::array<std::pair<int, Operation>, 10> kWeights = {{{6, &SideBySide::mount},
                                                                            {3, &SideBySide::unmount},
                                                                            {1, &SideBySide::unmountAll},
                                                                            {2, &SideBySide::offer},
                                                                            {1, &SideBySide::withdrawOffer},
                                                                            {2, &SideBySide::readiness},
                                                                            {3, &SideBySide::heartbeat},
                                                                            {2, &SideBySide::enable},
                                                                            {3, &SideBySide::service},
                                                                            {3, &SideBySide::callOrPoint}}};
    int choice = below(26);
    for (auto const& [weight, operation] : kWeights) {
      if (choice < weight) return (this->*operation)();
      choice -= weight;
    }
  }
  void callOrPoint() {
    switch (below(3)) {
      case 0:
        return callSwitch();
      case 1:
        return callPublisher();
      default:
        return inputs();
    }
  }

  /// An offer that is there: one of a table, or the one that the publisher still holds.
  Model::OfferPtr anyOffer() {
    if (below(4) == 0 && model_.publisher() && model_.publisher()->offer) return model_.publisher()->offer;
    auto const& system = modelTables_[anyTable()].system;
    auto const at = system.find(anySystem());
    return at != system.end() ? at->second : nullptr;
  }
  void mount() {
    done_ = "mount";
    auto const offer = anyOffer();
    if (!offer) return;
    Model::Mount const mount = anyMount();
    offers_[offer.get()]->publishedMountIs(real(mount));
    model_.mountIs(offer, mount);
  }
  void unmount() {
    done_ = "unmount";
    auto const offer = anyOffer();
    if (!offer) return;
    int const path = anyPath();
    offers_[offer.get()]->publishedMountDel(kPaths[Words::at(path)]);
    model_.mountDel(offer, path);
  }
  void unmountAll() {
    done_ = "unmountAll";
    auto const offer = anyOffer();
    if (!offer || below(3) != 0) return;
    offers_[offer.get()]->publishedMountDelAll();
    model_.mountDelAll(offer);
  }
  void offer() {
    done_ = "offer";
    std::size_t const table = anyTable();
    int const id = anySystem();
    auto const made = tables_[table]->systemIs(kSystems[Words::at(id)]);
    model_.offerIs(modelTables_[table], id);
    offers_[modelTables_[table].system[id].get()] = made;
  }
  void withdrawOffer() {
    done_ = "withdrawOffer";
    std::size_t const table = anyTable();
    int const id = anySystem();
    tables_[table]->systemDel(kSystems[Words::at(id)]);
    model_.offerDel(modelTables_[table], id);
  }
  void readiness() {
    done_ = "readiness";
    std::size_t const table = anyTable();
    int const service = anyService();
    if (below(3) == 0) {
      tables_[table]->servicePublishReadyDel(services_[Words::at(service)]);
      model_.readyDel(modelTables_[table], service);
    } else {
      bool const ready = chance();
      tables_[table]->servicePublishReadyIs(services_[Words::at(service)], ready);
      model_.readyIs(modelTables_[table], service, ready);
    }
  }
  void heartbeat() {
    done_ = "heartbeat";
    int const id = anySystem();
    bool const heard = below(4) != 0;
    if (heard)
      peers_->peerIs(kSystems[Words::at(id)]);
    else
      peers_->peerDel(kSystems[Words::at(id)]);
    model_.heardIs(id, heard);
  }
  void enable() {
    done_ = "enable";
    if (below(10) == 0) {
      int const id = below(kSystems.size());
      config_->systemIdIs(kSystems[Words::at(id)]);
      model_.systemIdIs(id);
    } else if (chance()) {
      config_->registrationGenIdIs(config_->registrationGenId() + 1);
      model_.generationIs();
    } else {
      bool const enabled = below(4) != 0;
      config_->enabledIs(enabled);
      model_.enabledIs(enabled);
    }
  }
  void service() {
    done_ = "service";
    bool const onSwitch = chance();
    int const service = anyService();
    String8 const& text = services_[Words::at(service)];
    if (text.empty()) return;
    bool const enabled = below(3) != 0;
    if (model_.has(onSwitch, service) && below(4) != 0) {
      auto const record = onSwitch ? config_->serviceConfig(Name(text)) : serviceConfigDir_->service(Name(text));
      record->enabledIs(enabled);
      model_.serviceEnabledIs(onSwitch, service, enabled);
    } else if (below(4) == 0) {
      if (onSwitch)
        config_->serviceConfigDel(Name(text));
      else
        serviceConfigDir_->serviceDel(Name(text));
      model_.serviceDel(onSwitch, service);
    } else {
      auto const record = Nox::make<ServiceConfigV1>(Name(text));
      record->enabledIs(enabled);
      if (onSwitch)
        config_->serviceConfigIs(record);
      else
        serviceConfigDir_->serviceIs(record);
      model_.serviceIs(onSwitch, service, enabled);
    }
  }
  void callSwitch() {
    done_ = "callSwitch";
    switch (below(3)) {
      case 0: {
        int const id = anySystem();
        sm_->handleSystemPublish(kSystems[Words::at(id)]);
        return model_.handleSystem(id);
      }
      case 1:
        sm_->handleSystemPublish();
        return model_.handleWholeTable();
      default: {
        int const service = anyService();
        sm_->handleServicePublishReady(services_[Words::at(service)]);
        return model_.handleReady(service);
      }
    }
  }
  void callPublisher() {
    done_ = "callPublisher";
    if (!model_.publisher()) return;
    if (chance()) {
      sm_->systemPublishSm()->handlePublishedMount();
      model_.handlePublisher();
    } else {
      int const path = anyPath();
      sm_->systemPublishSm()->handlePublishedMount(kPaths[Words::at(path)]);
      model_.handlePublisher(path);
    }
  }
  /// Other inputs for one of the two machines, which runs no pass; or the publisher is dropped.
  void inputs() {
    done_ = "inputs";
    // Most often the first table; sometimes none.
    std::size_t const table = below(3) == 0 ? below(3) : 0;
    Ptr<PublishedMountsTable> const realTable = table < 2 ? Ptr<PublishedMountsTable>(tables_[table]) : nullptr;
    Model::Table* const modelTable = table < 2 ? &modelTables_[table] : nullptr;
    switch (below(4)) {
      case 0:
      case 1:
        sm_->publishedMountsTableIs(realTable);
        return model_.tableIs(modelTable);
      case 2:
        if (!model_.publisher()) return;
        sm_->systemPublishSm()->publishedMountsTableIs(realTable);
        return model_.publisherTableIs(modelTable);
      default: {
        if (!model_.publisher()) return;
        if (below(5) == 0) {
          sm_->systemPublishSmDel();
          return model_.publisherDel();
        }
        auto const offer = anyOffer();
        sm_->systemPublishSm()->systemPublishedMountIs(offer ? offers_[offer.get()] : nullptr);
        return model_.publisherOfferIs(offer);
      }
    }
  }
  void restart() {
    done_ = "restart";
    sm_ = nullptr;
    makeSm();
    model_.restart();
  }
  void makeSm() {
    Ptr<PublishedMountsTable> table;
    for (std::size_t i = 0; i < 2; ++i)
      if (model_.table() == &modelTables_[i]) table = tables_[i];
    sm_ = Controllerdb::switchConfigSmFactory(config_,
                                              status_,
                                              peers_,
                                              controllerStatus_,
                                              serviceConfigDir_,
                                              nullptr,
                                              "uuid-1",
                                              serviceStatusDir_,
                                              "leaf-1",
                                              table,
                                              nullptr);
  }

  void compare() {
    auto const& publisher = sm_->systemPublishSm();
    ASSERT_EQ(static_cast<bool>(publisher), static_cast<bool>(model_.publisher())) << done_;
    if (publisher) {
      auto const offer = model_.publisher()->offer;
      ASSERT_EQ(publisher->systemPublishedMount(), offer ? offers_[offer.get()] : nullptr) << done_;
      auto const* const table = model_.publisher()->table;
      ASSERT_EQ(publisher->publishedMountsTable(),
                table == nullptr ? nullptr : Ptr<PublishedMountsTable>(tables_[table == &modelTables_[0] ? 0 : 1]))
          << done_;
    }
    ASSERT_EQ(status_->servicePublishedInfo().members(), model_.infos().size()) << done_;
    auto expected = model_.infos().begin();
    for (auto const& info : status_->servicePublishedInfo()) {
      ASSERT_EQ(info.fwkKey(), services_[Words::at(expected->first)]) << done_;
      ASSERT_EQ(info.ready(), expected->second.ready) << done_ << ", service " << info.fwkKey();
      ASSERT_EQ(info.publishedMount().members(), expected->second.mounts.size())
          << done_ << ", service " << info.fwkKey();
      auto mount = expected->second.mounts.begin();
      for (auto const& row : info.publishedMount()) {
        ASSERT_EQ(row.fwkKey(), kPaths[Words::at(mount->first)]) << done_;
        ASSERT_EQ(row.value(), real(mount->second)) << done_;
        ++mount;
      }
      ++expected;
    }
  }

  std::mt19937 random_;
  std::vector<String8> const services_;
  std::array<Model::Table, 2> modelTables_;
  Words words_{&model_, services_};
  Model model_;
  std::string done_;  // the last operation

  ValidPtr<SwitchConfig> const config_ = Nox::make<SwitchConfig>("leaf-1");
  ValidPtr<SwitchStatus> const status_ = Nox::make<SwitchStatus>("leaf-1");
  ValidPtr<Controller::PeerTable> const peers_ = Nox::make<Controller::PeerTable>("peers");
  ValidPtr<ControllerRegistration::ControllerStatus> const controllerStatus_ =
      Nox::make<ControllerRegistration::ControllerStatus>("controllerStatus");
  ValidPtr<Controller::ServiceConfigDir> const serviceConfigDir_ =
      Nox::make<Controller::ServiceConfigDir>("serviceConfig");
  ValidPtr<Controller::ServiceStatusDir> const serviceStatusDir_ = Nox::make<Controller::ServiceStatusDir>("leaf-1");
  std::array<ValidPtr<PublishedMountsTable>, 2> const tables_ = {Nox::make<PublishedMountsTable>("first"),
                                                                 Nox::make<PublishedMountsTable>("second")};
  std::map<Model::Offer const*, Ptr<SystemPublishedMount>> offers_;  // the real ones
  Ptr<Controllerdb::SwitchConfigSm> sm_;
};

constexpr unsigned kSteps = 1000;

}  // namespace

class RandomPublication : public testing::TestWithParam<unsigned> {};
// Five services are walked through, forty have an index.
INSTANTIATE_TEST_SUITE_P(FewAndManyServices, RandomPublication, testing::Values(5, 40));

TEST_P(RandomPublication, PublishesWhatTheModelSays) {
  for (unsigned const seed : sampledRounds(300)) {
    SideBySide both(seed, GetParam());
    for (unsigned step = 0; step < kSteps; ++step) {
      both.step();
      ASSERT_FALSE(HasFailure()) << "seed " << seed << ", step " << step;
    }
  }
}

TEST_P(RandomPublication, WritesAndTracesInTheModelsOrder) {
  for (unsigned seed = 1000; seed < 1020; ++seed) {
    SideBySide both(seed, GetParam());
    WriteLog log;
    TraceCapture traces({4, 5});
    for (unsigned step = 0; step < kSteps; ++step) {
      both.step(&log, &traces);
      ASSERT_FALSE(HasFailure()) << "seed " << seed << ", step " << step;
      log.clear();
      traces.clear();
    }
  }
}

}  // namespace PublicationRandomTest
