// GoogleTest matchers for a host app's tests of its Mirelo hand-offs.
//
//   #include "mirelo/testing/Matchers.h"
//   using mirelotesting::RespIs;
//
//   // The answer is a SendAuthResp with code 0 and these fields.
//   EXPECT_THAT(answers.back(),
//               RespIs<SendAuthResp>(ErrCodeSuccess, testing::Field(&SendAuthResp::code, "C0DE"),
//                                    testing::Field(&SendAuthResp::state, "st-1")));
//   // Any response class, any failure code.
//   EXPECT_THAT(answers.back(), RespCodeIs(testing::Lt(0)));
//
// The matchers take a std::shared_ptr to the object, as the delegate gets
// it.  A mismatch explains itself: the class, the code and the fields
// print readably (see PrintTo in the model and value headers).  Link the
// test with GoogleTest's gmock.
#pragma once

#include <gmock/gmock.h>

#include <type_traits>

#include "mirelo/model/Model.h"

namespace mirelo::testing {

// A response whose object is a T (or a subclass of T) with an errCode
// matching `code` (a value or a matcher), and matching every one of
// `fields`, matchers of `const T&` such as testing::Field(&T::member, m).
template <class T, class CodeMatcher, class... FieldMatchers>
auto RespIs(CodeMatcher code, FieldMatchers... fields) {
  static_assert(std::is_base_of_v<BaseResp, T>, "RespIs<T>: T is a response class");
  return ::testing::Pointee(::testing::WhenDynamicCastTo<const T&>(
      ::testing::AllOf(::testing::Field("errCode", &BaseResp::errCode, code), fields...)));
}

// A response of any class whose errCode matches `code`.
template <class CodeMatcher>
auto RespCodeIs(CodeMatcher code) {
  return ::testing::Pointee(::testing::Field("errCode", &BaseResp::errCode, code));
}

// A request whose object is a T (or a subclass of T) matching every one of
// `fields`, matchers of `const T&`.
template <class T, class... FieldMatchers>
auto ReqIs(FieldMatchers... fields) {
  static_assert(std::is_base_of_v<BaseReq, T>, "ReqIs<T>: T is a request class");
  return ::testing::Pointee(::testing::WhenDynamicCastTo<const T&>(::testing::AllOf(
      ::testing::Field("type", &BaseReq::type, ::testing::_), fields...)));
}

// A String that is null ("no string"), as opposed to empty.
MATCHER(IsNullString, negation ? "is a non-null String" : "is a null String") { return arg.isNull(); }

}  // namespace mirelo::testing
