// The closed lists of what is told of a switch: its conditions, and the reasons that they can have.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace Agent {

/// What is known of a condition.
enum class Truth : std::uint8_t { kFalse, kTrue, kUnknown };

/// A condition of a switch, or of one service of a switch: a row of the table of conditions.
struct ConditionRow {
  std::string_view name;
  bool isOfService;
  /// What it is that is true, unless it is false.
  std::string_view meaning;
};

/// All conditions, in the order in which they are told: what comes first may be why a later one is false.
inline constexpr ConditionRow kConditions[] = {
    {"Registered", false, "the registration has a config and a status, and the registry serves it"},
    {"Enabled", false, "the switch wants to be served"},
    {"Heard", false, "the heartbeat of its system id exists"},
    {"AgentEnabled", false, "the operator has switched the agent on"},
    {"IdentityUnique", false, "its system id is its own, and it has no other"},
    {"Answered", false, "its status has the generation that it asks for, and the controller's identity"},
    {"Ready", false, "it stands in the controller's table"},
    {"Negotiated", true, "a version runs between the switch and the controller"},
    {"Current", true, "a negotiation of today's configurations would have the recorded outcome"},
    {"Published", true, "what the switch offers for the service is published, and ready to be used"},
};

/// One of them. Code names it: `Condition("Ready")`; a name that the table does not have does not compile.
class Condition {
 public:
  consteval Condition(char const* name) : row_(rowOf(name)) {}
  static constexpr Condition ofRow(std::size_t row) { return Condition(static_cast<std::uint8_t>(row)); }

  constexpr std::size_t row() const { return row_; }
  constexpr std::string_view name() const { return kConditions[row_].name; }
  constexpr bool isOfService() const { return kConditions[row_].isOfService; }
  friend constexpr auto operator<=>(Condition, Condition) = default;

 private:
  constexpr explicit Condition(std::uint8_t row) : row_(row) {}
  static consteval std::uint8_t rowOf(std::string_view name) {
    for (std::size_t row = 0; row < std::size(kConditions); ++row)
      if (kConditions[row].name == name) return static_cast<std::uint8_t>(row);
    throw "the table has no such condition";
  }

  std::uint8_t row_;
};

/// Why a condition is what it is: a row of the table of reasons. Words between angle brackets stand for values, those
/// of `kWords` in `words.cpp`.
struct ReasonRow {
  /// What programs compare: it never changes.
  std::string_view code;
  Truth truth;
  /// The conditions that can have it, with blanks between them.
  std::string_view conditions;
  std::string_view sentence;
  /// What clears it; empty where nothing need be done.
  std::string_view advice;
  /// The same as a command, where there is one.
  std::string_view command;
};

/// All reasons, in the order of the documents.
inline constexpr ReasonRow kReasons[] = {
    // Of several conditions.
    {"NoConfig",
     Truth::kFalse,
     "Registered Ready",
     "registration/<switch>/config does not exist",
     "the switch puts its configuration",
     ""},
    {"ConfigUnknown",
     Truth::kUnknown,
     "Enabled Heard IdentityUnique Answered",
     "registration/<switch>/config does not exist",
     "",
     ""},
    {"AgentDisabled",
     Truth::kFalse,
     "Registered AgentEnabled Ready",
     "controller/config has enabled false, so that no switch is served that was there then",
     "the operator enables the agent",
     R"(enrolix put controller/config --value '{"enabled": true}')"},
    {"NoStatus",
     Truth::kFalse,
     "Registered Answered Ready",
     "registration/<switch>/status does not exist",
     "the switch puts an empty status, into which it is answered",
     "enrolix put registration/<switch>/status --value '{}'"},
    {"EntryDeleted",
     Truth::kFalse,
     "Registered Ready",
     "the registration has a config and a status, and the registry does not serve it: an entry was deleted, and none has been added since",
     "the switch adds an entry to its registration",
     "enrolix put registration/<switch>/<newEntry> --value true"},
    {"RegistrationDeleted", Truth::kFalse, "Ready", "registration/<switch> was deleted", "the switch enrols again", ""},
    {"NotEnabled",
     Truth::kFalse,
     "Enabled Ready",
     "registration/<switch>/config has enabled false",
     "the switch puts its configuration with enabled true",
     ""},
    {"HeartbeatExpired",
     Truth::kFalse,
     "Heard Ready",
     "heartbeat/<systemId> was not put again within its time to live",
     "the heartbeat source puts it again; to do so once by hand",
     "enrolix put heartbeat/<systemId> --value '{}'"},
    {"HeartbeatDeleted",
     Truth::kFalse,
     "Heard Ready",
     "heartbeat/<systemId> was deleted",
     "the heartbeat source puts it again; to do so once by hand",
     "enrolix put heartbeat/<systemId> --value '{}'"},
    {"NeverHeard",
     Truth::kFalse,
     "Heard Ready",
     "heartbeat/<systemId> does not exist, and no end of it is known",
     "the heartbeat source puts it; to do so once by hand",
     "enrolix put heartbeat/<systemId> --value '{}'"},
    {"SystemIdTaken",
     Truth::kFalse,
     "IdentityUnique Ready",
     "the system id <systemId> is that of other registrations, too (<others>), and one row tells of one of them",
     "all but one of these registrations are deleted, or get system ids of their own",
     ""},
    // Of one condition each.
    {"Served",
     Truth::kTrue,
     "Registered",
     "registration/<switch> has a config and a status, and the registry serves it",
     "",
     ""},
    {"EnabledBySwitch", Truth::kTrue, "Enabled", "registration/<switch>/config has enabled true", "", ""},
    {"HeartbeatThere", Truth::kTrue, "Heard", "heartbeat/<systemId> exists", "", ""},
    {"NotHeardSinceStart",
     Truth::kUnknown,
     "Heard",
     "heartbeat/<systemId> was put before the registry began last and not again since; until it expires it counts as heard",
     "",
     ""},
    {"EnabledByOperator", Truth::kTrue, "AgentEnabled", "controller/config has enabled true", "", ""},
    {"IdentityOfItsOwn", Truth::kTrue, "IdentityUnique", "no other registration has the system id <systemId>", "", ""},
    {"SystemIdChanged",
     Truth::kFalse,
     "IdentityUnique",
     "controller/switch/<ghosts> names <switch>, which has the system id <systemId> now",
     "the row of the old system id goes at the agent's next start",
     ""},
    {"AsAskedFor",
     Truth::kTrue,
     "Answered",
     "the status has the generation <asked> and the controller's identity <statusUuid>",
     "",
     ""},
    {"GenerationBehind",
     Truth::kFalse,
     "Answered",
     "the switch asks for generation <asked>, and its status has <answered>",
     "the registry answers when the switch is ready",
     ""},
    {"IdentityBehind",
     Truth::kFalse,
     "Answered",
     "the status has the controller's identity <statusUuid>, and controller/status has <uuid>",
     "the registry tells a switch the identity that was there when it registered: the switch adds an entry to its registration, and raises its generation",
     ""},
    {"RowThere", Truth::kTrue, "Ready", "controller/switch/<systemId> names <switch>", "", ""},
    {"RowsMissingAfterReplacement",
     Truth::kFalse,
     "Ready",
     "the switch is served, enabled and heard, and controller/switch/<systemId> does not name it: readiness has not been decided since an entry of the registration was added or replaced, or since another registration took the row with it",
     "readiness is decided anew: the switch raises registrationGenId",
     ""},
    // Of services.
    {"HighestCommonVersion",
     Truth::kTrue,
     "Negotiated",
     "<version> was negotiated; the switch offers <own>, the controller <controller>",
     "",
     ""},
    {"OverrideInForce",
     Truth::kTrue,
     "Negotiated",
     "<version> was negotiated; the switch offers <own>, the override <controller>, which stands in for the controller's configuration",
     "",
     ""},
    {"NoCommonVersion",
     Truth::kFalse,
     "Negotiated",
     "the switch offers <own>, <side> <controller>: no version is in both",
     "one side offers a version of the other, and the service is negotiated anew",
     ""},
    {"NotKnownToController",
     Truth::kFalse,
     "Negotiated",
     "neither service/config/<service> nor service/override/<service> exists",
     "the operator puts a configuration of the service, and the service is negotiated anew",
     ""},
    {"DisabledByController",
     Truth::kFalse,
     "Negotiated",
     "service/config/<service> has enabled false",
     "the operator enables the service",
     ""},
    {"DisabledByOverride",
     Truth::kFalse,
     "Negotiated",
     "service/override/<service> has enabled false",
     "the operator deletes the override, and the service is negotiated anew",
     "enrolix delete service/override/<service>"},
    {"DisabledBySwitch",
     Truth::kFalse,
     "Negotiated",
     "registration/<switch>/config has enabled false for <service>",
     "the switch enables the service",
     ""},
    {"OutcomeOutdated",
     Truth::kFalse,
     "Negotiated",
     "the recorded outcome, <recorded>, is of older configurations; today's would have <today>",
     "the service is negotiated anew when readiness is decided: the switch raises registrationGenId",
     ""},
    {"NotNegotiatedYet",
     Truth::kFalse,
     "Negotiated",
     "the switch configures <service>, and no negotiation of it is recorded",
     "the service is negotiated when the switch is next found ready: the switch raises registrationGenId",
     ""},
    {"NotConfigured",
     Truth::kFalse,
     "Negotiated",
     "registration/<switch>/config does not have <service>",
     "the switch configures the service, or offers no mounts for it and deletes its status and puts it anew",
     ""},
    {"SameToday",
     Truth::kTrue,
     "Current",
     "a negotiation of today's configurations would have the same outcome",
     "",
     ""},
    {"InputsChangedSince",
     Truth::kFalse,
     "Current",
     "the recorded outcome is <recorded>; today's configurations would have <today>",
     "the service is negotiated anew when readiness is decided: the switch raises registrationGenId",
     ""},
    {"NothingRecorded",
     Truth::kUnknown,
     "Current",
     "no outcome of <service> is recorded that the switch configures",
     "",
     ""},
    {"AllPublished",
     Truth::kTrue,
     "Published",
     "<offered> mounts are offered and published, and mount/ready/<service> is true",
     "",
     ""},
    {"NothingOffered", Truth::kTrue, "Published", "mount/offer/<systemId> has no mount for <service>", "", ""},
    {"OfferNotPublished",
     Truth::kFalse,
     "Published",
     "<missing> of the <offered> mounts that are offered for <service> are not published",
     "mounts are published when the switch becomes ready, and when they are offered while it is: delete mount/offer/<systemId> and put it again while the switch is ready",
     ""},
    {"MountsNotReady",
     Truth::kFalse,
     "Published",
     "<offered> mounts are offered and published, and mount/ready/<service> is not true",
     "the mount source says that the service's mounts may be used",
     "enrolix put mount/ready/<service> --value true"},
    {"ReadinessBehind",
     Truth::kFalse,
     "Published",
     "mount/ready/<service> has changed while the switch was not ready, and its status has not",
     "the next change of mount/ready/<service> is told, and so is the next mount that is offered",
     ""},
    {"MountsLeft",
     Truth::kFalse,
     "Published",
     "<left> mounts are published for <service> that are not offered for it now",
     "they go when the switch is ready and they are offered for no service: delete mount/offer/<systemId> while the switch is ready, and put it again",
     ""},
};

/// One of them. Code names it by its code, `Reason("NotEnabled")`; another does not compile.
class Reason {
 public:
  consteval Reason(char const* code) : row_(rowOf(code)) {}
  static constexpr Reason ofRow(std::size_t row) { return Reason(static_cast<std::uint8_t>(row)); }

  constexpr std::size_t row() const { return row_; }
  constexpr ReasonRow const* operator->() const { return &kReasons[row_]; }
  friend constexpr bool operator==(Reason, Reason) = default;

 private:
  constexpr explicit Reason(std::uint8_t row) : row_(row) {}
  static consteval std::uint8_t rowOf(std::string_view code) {
    for (std::size_t row = 0; row < std::size(kReasons); ++row)
      if (kReasons[row].code == code) return static_cast<std::uint8_t>(row);
    throw "the table has no such reason";
  }

  std::uint8_t row_;
};

}  // namespace Agent
