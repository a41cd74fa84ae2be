// Keyed collections with string keys: insert, find, walk and erase of 1,000, 10,000 and 100,000 entries, and the memory
// of one.
//
// An entry is a key and a number. Keys are switch names, short enough to stand in a std::string without memory of its
// own, in random order, another one for each work. Each collection is given keys of the type that it keeps: the
// project's a Nox::Name, the peers a std::string. "text" works start from bare characters, as if these had just been
// read. Only the project's keys can be shared with what is stored; "find-shared" gives the peers equal strings.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bench/bench.h"
#include "framework/core/collections.h"
#include "framework/text/name.h"

#ifdef BENCH_HAS_ABSEIL
#include <absl/container/btree_map.h>
#include <absl/container/flat_hash_map.h>
#include <absl/strings/string_view.h>
#endif
#ifdef BENCH_HAS_BOOST
#include <boost/intrusive/set.hpp>
#include <boost/intrusive/unordered_set.hpp>
#endif
#ifdef BENCH_HAS_GOBJECT
#include <glib.h>
#endif

namespace {

// What each collection is to the benchmarks: a class with `Key`, `insert(key, number)`, `find(key)` and
// `findText(text)` for the number or 0, `erase(key)`, `sum()` over a walk, `kIsOrdered` if it walks in an order that
// does not depend on its history, `kIsHash` if it is no tree, and `outsideMalloc(key)`: bytes of an entry that malloc
// knows nothing of.

class NoxTable {
 public:
  using Key = Nox::Name;
  static constexpr bool kIsOrdered = true;
  static constexpr bool kIsHash = true;

  void insert(Key const& key, unsigned number) { map_.valueIs(key, number); }
  unsigned find(Key const& key) const { return map_.value(key); }
  unsigned findText(std::string_view text) const { return map_.value(Key(text)); }
  void erase(Key const& key) { map_.memberDel(key); }
  unsigned sum() const {
    unsigned sum = 0;
    for (auto const& row : map_) sum += row.value();
    return sum;
  }
  /// The pool hands out multiples of 16 bytes, without a header: here the row, and the buffer of its name.
  static std::size_t outsideMalloc(Key const& key) {
    auto const slot = [](std::size_t bytes) { return (bytes + 15) / 16 * 16; };
    return slot(sizeof(Row)) + slot(sizeof(Nox::Name::Data) + key.view().size() + 1);
  }

 private:
  class Row : public Nox::Row<Nox::Name, unsigned> {
   public:
    using Nox::Row<Nox::Name, unsigned>::Row;
  };
  Nox::ValueMap<Row, Nox::Name, unsigned> map_;
};

/// Hashes strings and views alike, so that a find in text makes no string.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>()(text); }
};

/// A collection of the shape of std::map, which takes a `View` of a text for a key.
template <class Map, bool Ordered, class View = std::string_view>
class PairTable {
 public:
  using Key = std::string;
  static constexpr bool kIsOrdered = Ordered;
  static constexpr bool kIsHash = !Ordered;

  void insert(Key const& key, unsigned number) { map_.try_emplace(key, number); }
  unsigned find(Key const& key) const { return findText(key); }
  unsigned findText(std::string_view text) const {
    auto const found = map_.find(View(text.data(), text.size()));
    return found != map_.end() ? found->second : 0;
  }
  void erase(Key const& key) { map_.erase(key); }
  unsigned sum() const {
    unsigned sum = 0;
    for (auto const& entry : map_) sum += entry.second;
    return sum;
  }
  static std::size_t outsideMalloc(Key const& /*key*/) { return 0; }

 private:
  Map map_;
};

#ifdef BENCH_HAS_BOOST
namespace bi = boost::intrusive;

/// What the intrusive collections of Boost share: entries that the collection owns.
template <class Hook>
struct BoostEntry : Hook {
  BoostEntry(std::string k, unsigned n) : key(std::move(k)), number(n) {}
  std::string key;
  unsigned number;
};
template <class Entry>
struct BoostKey {
  using type = std::string;
  type const& operator()(Entry const& entry) const { return entry.key; }
};

class BoostSet {
 public:
  using Key = std::string;
  static constexpr bool kIsOrdered = true;
  static constexpr bool kIsHash = false;

  BoostSet() = default;
  BoostSet(BoostSet const&) = delete;
  BoostSet& operator=(BoostSet const&) = delete;
  ~BoostSet() { set_.clear_and_dispose(std::default_delete<Entry>()); }

  void insert(Key const& key, unsigned number) {
    Set::insert_commit_data place;
    if (set_.insert_check(key, place).second) set_.insert_commit(*new Entry(key, number), place);
  }
  unsigned find(Key const& key) const { return findText(key); }
  unsigned findText(std::string_view text) const {
    auto const found = set_.find(text, std::less<>());
    return found != set_.end() ? found->number : 0;
  }
  void erase(Key const& key) { set_.erase_and_dispose(key, std::default_delete<Entry>()); }
  unsigned sum() const {
    unsigned sum = 0;
    for (Entry const& entry : set_) sum += entry.number;
    return sum;
  }
  static std::size_t outsideMalloc(Key const& /*key*/) { return 0; }

 private:
  using Entry = BoostEntry<bi::set_base_hook<bi::link_mode<bi::normal_link>, bi::optimize_size<true>>>;
  using Set = bi::set<Entry, bi::key_of_value<BoostKey<Entry>>>;
  Set set_;
};

/// The owner of the buckets makes them anew when there are more entries than buckets.
class BoostUnorderedSet {
 public:
  using Key = std::string;
  static constexpr bool kIsOrdered = false;
  static constexpr bool kIsHash = true;

  BoostUnorderedSet() = default;
  BoostUnorderedSet(BoostUnorderedSet const&) = delete;
  BoostUnorderedSet& operator=(BoostUnorderedSet const&) = delete;
  ~BoostUnorderedSet() { set_.clear_and_dispose(std::default_delete<Entry>()); }

  void insert(Key const& key, unsigned number) {
    Set::insert_commit_data place;
    if (!set_.insert_check(key, place).second) return;
    set_.insert_commit(*new Entry(key, number), place);
    if (set_.size() > buckets_.size()) {
      std::vector<Set::bucket_type> more(2 * buckets_.size());
      set_.rehash(Set::bucket_traits(more.data(), more.size()));
      buckets_ = std::move(more);
    }
  }
  unsigned find(Key const& key) const { return findText(key); }
  unsigned findText(std::string_view text) const {
    auto const found = set_.find(text, TextHash(), std::equal_to<>());
    return found != set_.end() ? found->number : 0;
  }
  void erase(Key const& key) { set_.erase_and_dispose(key, std::default_delete<Entry>()); }
  unsigned sum() const {
    unsigned sum = 0;
    for (Entry const& entry : set_) sum += entry.number;
    return sum;
  }
  static std::size_t outsideMalloc(Key const& /*key*/) { return 0; }

 private:
  using Entry = BoostEntry<bi::unordered_set_base_hook<bi::link_mode<bi::normal_link>, bi::store_hash<true>>>;
  using Set =
      bi::unordered_set<Entry, bi::key_of_value<BoostKey<Entry>>, bi::hash<TextHash>, bi::power_2_buckets<true>>;
  std::vector<Set::bucket_type> buckets_{8};
  Set set_{Set::bucket_traits(buckets_.data(), buckets_.size())};
};
#endif

#ifdef BENCH_HAS_GOBJECT
/// Keys and numbers are pointers; the keys are the table's own copies.
class GlibTable {
 public:
  using Key = std::string;
  static constexpr bool kIsOrdered = false;
  static constexpr bool kIsHash = true;

  GlibTable() : table_(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr)) {}
  GlibTable(GlibTable const&) = delete;
  GlibTable& operator=(GlibTable const&) = delete;
  ~GlibTable() { g_hash_table_unref(table_); }

  void insert(Key const& key, unsigned number) {
    g_hash_table_insert(table_, g_strdup(key.c_str()), GUINT_TO_POINTER(number));
  }
  unsigned find(Key const& key) const { return findText(key); }
  unsigned findText(std::string_view text) const { return GPOINTER_TO_UINT(g_hash_table_lookup(table_, text.data())); }
  void erase(Key const& key) { g_hash_table_remove(table_, key.c_str()); }
  unsigned sum() const {
    unsigned sum = 0;
    GHashTableIter at;
    gpointer number = nullptr;
    g_hash_table_iter_init(&at, table_);
    while (g_hash_table_iter_next(&at, nullptr, &number)) sum += GPOINTER_TO_UINT(number);
    return sum;
  }
  static std::size_t outsideMalloc(Key const& /*key*/) { return 0; }

 private:
  GHashTable* table_;
};
#endif

/// The texts of the keys, in the order of `seed`.
std::vector<std::string> texts(long size, unsigned seed) {
  std::vector<std::string> made;
  for (long i = 0; i < size; ++i) made.push_back("leaf-" + std::to_string(i));
  std::shuffle(made.begin(), made.end(), std::mt19937(seed));
  return made;
}

template <class Table>
using Keys = std::vector<typename Table::Key>;

template <class Table>
Keys<Table> keys(std::vector<std::string> const& from) {
  Keys<Table> made;
  for (std::string const& text : from) made.emplace_back(std::string_view(text));
  return made;
}

/// A table, and the keys that its entries were made from.
template <class Table>
struct Filled {
  explicit Filled(long size) : stored(keys<Table>(texts(size, 1))) {
    unsigned number = 0;
    for (auto const& key : stored) table.insert(key, ++number);
  }
  Keys<Table> stored;
  Table table;
};

std::size_t mallocBytes() {
  struct mallinfo2 const info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// Bytes of an entry that alone keeps its key.
template <class Table>
double bytesPerEntry(long size) {
  std::vector<std::string> const from = texts(size, 1);
  std::size_t const before = mallocBytes();
  auto const table = std::make_unique<Table>();
  std::size_t outside = 0;
  for (std::string const& text : from) {
    typename Table::Key const key{std::string_view(text)};
    table->insert(key, 1);
    outside += Table::outsideMalloc(key);
  }
  return static_cast<double>(mallocBytes() - before + outside) / static_cast<double>(size);
}

/// Enters a find of every key of `sought`, a collection of what `find` takes.
template <class Table, class MakeSought, class Find>
void addFind(char const* work, char const* subject, long size, MakeSought makeSought, Find find) {
  Bench::add("collection", work, subject, size, [=](benchmark::State& state) {
    Filled<Table> const filled(size);
    auto const sought = makeSought(filled);
    Bench::repeat(
        state,
        [&] {
          unsigned sum = 0;
          for (auto const& key : sought) sum += find(filled.table, key);
          benchmark::DoNotOptimize(sum);
        },
        size);
  });
}

template <class Table>
void addWorks(char const* subject, long size) {
  Bench::add("collection", "insert", subject, size, [=](benchmark::State& state) {
    auto const from = keys<Table>(texts(size, 1));
    Bench::repeatPrepared(
        state,
        size,
        [] { return std::make_unique<Table>(); },
        [&from](Table& table) {
          for (auto const& key : from) table.insert(key, 1);
        });
  })->UseManualTime();
  Bench::add("collection", "insert-text", subject, size, [=](benchmark::State& state) {
    std::vector<std::string> const from = texts(size, 1);
    Bench::repeatPrepared(
        state,
        size,
        [] { return std::make_unique<Table>(); },
        [&from](Table& table) {
          for (std::string const& text : from) table.insert(typename Table::Key(std::string_view(text)), 1);
        });
    state.counters["bytes"] = bytesPerEntry<Table>(size);
  })->UseManualTime();

  auto const find = [](Table const& table, auto const& key) { return table.find(key); };
  addFind<Table>(
      "find", subject, size, [size](auto const&) { return keys<Table>(texts(size, 2)); }, find);
  addFind<Table>(
      "find-shared",
      subject,
      size,
      [](Filled<Table> const& filled) {
        auto sought = filled.stored;
        std::shuffle(sought.begin(), sought.end(), std::mt19937(2));
        return sought;
      },
      find);
  addFind<Table>(
      "find-text",
      subject,
      size,
      [size](auto const&) { return texts(size, 2); },
      [](Table const& table, std::string const& text) { return table.findText(text); });

  auto const walk = [size](benchmark::State& state) {
    Filled<Table> const filled(size);
    Bench::repeat(
        state, [&filled] { benchmark::DoNotOptimize(filled.table.sum()); }, size);
  };
  if (Table::kIsOrdered) Bench::add("collection", "walk-ordered", subject, size, walk);
  if (Table::kIsHash) Bench::add("collection", "walk-hash", subject, size, walk);

  Bench::add("collection", "erase", subject, size, [=](benchmark::State& state) {
    auto const erased = keys<Table>(texts(size, 3));
    Bench::repeatPrepared(
        state,
        size,
        [size] { return std::make_unique<Filled<Table>>(size); },
        [&erased](Filled<Table>& filled) {
          for (auto const& key : erased) filled.table.erase(key);
        });
  })->UseManualTime();
}

bool const entered = [] {
  for (long const size : {1000L, 10000L, 100000L}) {
    addWorks<NoxTable>(Bench::kOurs, size);
    addWorks<PairTable<std::map<std::string, unsigned, std::less<>>, true>>("std::map", size);
    addWorks<PairTable<std::unordered_map<std::string, unsigned, TextHash, std::equal_to<>>, false>>(
        "std::unordered_map", size);
#ifdef BENCH_HAS_ABSEIL
    addWorks<PairTable<absl::btree_map<std::string, unsigned>, true, absl::string_view>>("Abseil btree_map", size);
    addWorks<PairTable<absl::flat_hash_map<std::string, unsigned>, false, absl::string_view>>("Abseil flat_hash_map",
                                                                                              size);
#endif
#ifdef BENCH_HAS_BOOST
    addWorks<BoostSet>("Boost intrusive set", size);
    addWorks<BoostUnorderedSet>("Boost intrusive unordered_set", size);
#endif
#ifdef BENCH_HAS_GOBJECT
    addWorks<GlibTable>("GLib GHashTable", size);
#endif
  }
  return true;
}();

}  // namespace
