// Documents and the records that they describe: checking, writing and reading, all by the records' attribute tables.
// `codec_rows.h` has the bodies, for the one source that names the records, and for tests.
#pragma once

#include "agent/document/json_reader.h"

namespace Agent {

/// The writer of a document: a client, or the registry itself, whose own fields come back from where they were kept.
enum class Writer { kOutside, kRegistry };

/// Throws an InputError unless `document` may be put over a record of class R: an object with no other members than the
/// fields that this writer writes, each of its type. Fields in which the registry does not answer may be written by
/// both. The error's field starts inside the document.
template <class R>
void checkDocument(Json const& document, Writer by = Writer::kOutside);

/// The document of a record of class R without the fields in which the registry answers; what is no object stays as it
/// is.
template <class R>
Json withoutAnswers(Json const& document);

/// Writes a document that was checked into a record, field by field in the order of the record's table; an absent field
/// means its default. Within a keyed field removed members come first, then changed ones, then new ones, each in the
/// collection's order; members that are still there stay the same entities. Opens no turn.
template <class R>
void writeDocument(Json const& document, R& record, Writer by = Writer::kOutside);

/// The record's document: every field, in the order of its table, keyed members in byte order of their keys.
template <class R>
Json readDocument(R const& record);

}  // namespace Agent
