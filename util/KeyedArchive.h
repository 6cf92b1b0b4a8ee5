// Keyed archives: the system's object-graph archive format, written and read
// on top of the binary property-list codec.
//
// An archive is a binary property list holding one dictionary:
//   "$archiver" "NSKeyedArchiver", "$version" 100000,
//   "$top"      {"root": UID of the root object},
//   "$objects"  an array whose element 0 is the string "$null" (UID 0 is nil).
// Strings, data and numbers stand in "$objects" as plain values.  A coded
// object (a record with encodeWithCoder) is a dictionary of its keyed values
// plus "$class", the UID of a class entry {"$classname": name, "$classes":
// [name, superclass, ..., "NSObject"]}.  Object values of a record are UIDs
// into "$objects"; 32-bit and native integers are integers in the record's
// dictionary, booleans are booleans.
//
// Reading treats the archive as hostile.  Where the system's unarchiver
// would raise (the bytes are not a property list, the frame is wrong, a
// reference dangles or loops, a class entry is malformed), KeyedUnarchiver
// reports an exception outcome with a description instead and answers nil,
// 0 and NO from then on.  Individual keyed reads of a sound archive answer
// nil/0/NO for an absent key or a value of the wrong kind, noting the
// problem in error().  Nothing here throws, and nothing is allocated from a
// size the input claims.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/Value.h"

namespace mirelo {

inline constexpr const char* kKeyedArchiverName = "NSKeyedArchiver";
inline constexpr std::int64_t kKeyedArchiveVersion = 100000;

// Writes one keyed archive.  For a record: call the encode functions in the
// record's order (keys keep that order), then archivedData with the
// record's class chain.
class KeyedArchiver {
 public:
  KeyedArchiver();

  // Archives whose root is the object itself: an NSData root (or an
  // NSMutableData one: the system writes both as the plain data value) and
  // an NSString root.  Null Data when the root cannot be written (a string
  // that is not valid UTF-8).  A null root gives the archive of nil.
  static Data archivedDataWithRootObject(const Data& data);
  static Data archivedDataWithRootObject(const String& string);

  // Keyed writes into the root record.  A null object is written as the
  // reference to "$null".  Writing a key twice replaces the first value.
  void encodeObject(const String& object, std::string_view key);
  void encodeObject(const Data& object, std::string_view key);
  void encodeInt32(std::int32_t value, std::string_view key);
  void encodeInteger(std::int64_t value, std::string_view key);
  void encodeBool(bool value, std::string_view key);

  // The archive whose root is a record of class `classes.front()` (its class
  // chain, most derived first, normally ending in "NSObject") holding the
  // values written so far.  Null Data, with `*error` set, when it cannot be
  // written (an empty class chain, a string that is not valid UTF-8).
  Data archivedData(const std::vector<std::string>& classes, std::string* error = nullptr) const;

 private:
  std::uint64_t addObject(Value v);
  std::uint64_t addString(const String& s);

  Array objects_;                                          // "$objects" after the record
  std::unordered_map<std::string, std::uint64_t> strings_;  // written strings, for reuse
  Dictionary record_;                                      // the root record's keyed values
};

// Reads one keyed archive.  The constructor checks the frame and resolves
// the root; everything after that reads from the parsed archive.
class KeyedUnarchiver {
 public:
  explicit KeyedUnarchiver(const Data& archive);
  // Holds pointers into its own parsed archive: neither copied nor moved.
  KeyedUnarchiver(const KeyedUnarchiver&) = delete;
  KeyedUnarchiver& operator=(const KeyedUnarchiver&) = delete;

  // True where the system's unarchiver raises: the archive is malformed.
  bool raised() const { return raised_; }
  // What was wrong, for "Unarchive failed: %@"; empty when nothing was.
  const std::string& exceptionDescription() const { return exception_; }

  // True when the root is nil (UID 0), or when the archive raised.
  bool rootIsNil() const { return raised_ || className_.isNull(); }
  // The root's class name: "NSData", "NSMutableData", "NSString",
  // "NSNumber" or a record's class; null for a nil root.
  const String& rootClassName() const { return className_; }
  // Whether the root's class chain contains `className` (an NSMutableData
  // root is also an NSData).
  bool rootIsKindOf(std::string_view className) const;
  // A plain root: its string, data or number (data shares the archive's
  // bytes).  Null for a nil root and for a record.
  const Value& rootObject() const { return rootObject_; }

  // Keyed reads from the root record.  nil/0/NO when the root is not a
  // record, the key is absent or its value is of the wrong kind.
  // decodeObject answers a string, data or number.
  Value decodeObject(std::string_view key) const;
  // decodeObject when it is a string, else null.
  String decodeString(std::string_view key) const;
  // 0 (and an error noted) for a value outside the 32-bit range.
  std::int32_t decodeInt32(std::string_view key) const;
  std::int64_t decodeInteger(std::string_view key) const;
  bool decodeBool(std::string_view key) const;
  bool containsValue(std::string_view key) const;

  // The first problem met by a keyed read; empty when none.
  const std::string& error() const { return error_; }

 private:
  bool fail(std::string description);
  void note(std::string problem) const;
  bool resolveRoot(std::uint64_t uid);
  // Reads the class entry at `uid` into `*chain` (most derived first).
  bool readClass(const Value& ref, std::uint64_t owner, std::vector<std::string>* chain, std::string* why) const;
  // The plain value the object at `uid` stands for (string, data, number),
  // unwrapping the NSData/NSString record forms.  False, with `*why`, for a
  // dangling or looping reference or an object that is not a plain value.
  bool leafValue(std::uint64_t uid, std::uint64_t owner, Value* out, String* className, std::string* why) const;
  const Value* field(std::string_view key) const;

  Value plist_;                         // the whole decoded archive
  const Array* objects_ = nullptr;      // its "$objects"
  const Dictionary* record_ = nullptr;  // the root record, when the root is one
  std::uint64_t rootUid_ = 0;
  bool raised_ = false;
  std::string exception_;
  String className_;
  std::vector<std::string> classes_;
  Value rootObject_;
  mutable std::string error_;
};

}  // namespace mirelo
