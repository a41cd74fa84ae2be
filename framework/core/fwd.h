// Forward declarations of the framework's classes, and the types of its numbers.
#pragma once

namespace Nox {

/// Number of an attribute within its class; a class's own attributes count from 256 upwards.
using AttributeId = unsigned;

/// A span of time in seconds.
using Seconds = double;

class Dir;
class Entity;
class GenericIf;
class Name;
class NotifieeList;
class NoxAttr;
class NoxType;
class PtrInterface;
class String8;
class Turn;

template <class T>
class Ptr;
template <class T>
class ValidPtr;

}  // namespace Nox
