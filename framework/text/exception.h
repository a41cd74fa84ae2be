// The framework's exceptions: what misuse of an operation throws.
#pragma once

#include <cstdint>
#include <exception>
#include <vector>

#include "framework/text/string8.h"

namespace Nox {

/// Base of the framework's exceptions: a message, a set of error ids, and a flag for the thrower.
class NOX_EXPORT Exception : public std::exception {
 public:
  using Id = unsigned;

  /// A set of error ids.
  class NOX_EXPORT IdBitArray {
   public:
    void add(Id id);
    bool has(Id id) const noexcept;

   private:
    std::vector<std::uint64_t> words_;
  };

  explicit Exception(String8 message, IdBitArray ids = {}, bool flag = false);
  ~Exception() override;

  char const* what() const noexcept override { return message_.charPtr(); }
  String8 const& message() const noexcept { return message_; }
  IdBitArray const& ids() const noexcept { return ids_; }
  bool flag() const noexcept { return flag_; }

 private:
  String8 message_;
  IdBitArray ids_;
  bool flag_;
};

/// A value outside of what is allowed: a null where none may be, text that is no value.
class NOX_EXPORT RangeException : public Exception {
 public:
  using Exception::Exception;
  ~RangeException() override;
};

/// A name that is taken by a member built from other arguments.
class NOX_EXPORT NameInUseException : public Exception {
 public:
  using Exception::Exception;
  ~NameInUseException() override;
};

/// A change asked of an instance that may only be read.
class NOX_EXPORT ConstException : public Exception {
 public:
  using Exception::Exception;
  ~ConstException() override;
};

/// A generic value of another type than the one that is wanted.
class NOX_EXPORT TypeException : public Exception {
 public:
  using Exception::Exception;
  ~TypeException() override;
};

/// An operation by name on an attribute that does not do it, or that the class does not have.
class NOX_EXPORT OpNotSupportedException : public Exception {
 public:
  using Exception::Exception;
  ~OpNotSupportedException() override;
};

/// An operation by name with more or fewer arguments than the attribute has.
class NOX_EXPORT UnknownArgException : public Exception {
 public:
  using Exception::Exception;
  ~UnknownArgException() override;
};

/// An operation by name with a key that the attribute cannot have.
class NOX_EXPORT BadIndexAttrException : public Exception {
 public:
  using Exception::Exception;
  ~BadIndexAttrException() override;
};

/// A library that cannot be loaded, or is not the one that is wanted.
class NOX_EXPORT LibraryException : public Exception {
 public:
  using Exception::Exception;
  ~LibraryException() override;
};

[[noreturn]] NOX_EXPORT void throwRangeException(String8 const& message);
[[noreturn]] NOX_EXPORT void throwNameInUseException(String8 const& message);

}  // namespace Nox
