// Documents and the records that they describe: parsing, writing and reading, all by the records' attribute tables.
// `codec_rows.h` has the bodies, for the one source that names the records, and for tests.
#pragma once

#include <string>

#include "agent/document/json_reader.h"

namespace Agent {

/// The writer of a document: a client, or the registry itself, whose own fields come back from where they were kept.
enum class Writer { kOutside, kRegistry };

/// What a document says of a record of class R: a value for each field, converted once.
template <class R>
class DocumentOf;

/// The document of a record of class R without the fields in which the registry answers; what is no object stays as it
/// is.
template <class R>
Json withoutAnswers(Json const& document);

/// The record's document as JSON in one line: every field, in the order of its table, keyed members in byte order of
/// their keys.
template <class R>
std::string readDocument(R const& record);

}  // namespace Agent
