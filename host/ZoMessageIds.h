#pragma once
// Every message identifier of the catalogue as a named constant, so that a
// misspelt identifier fails to compile instead of yielding an unknown message:
//   AddErrorMessage(msg::ESa014);
// The constants are the identifiers' own text ("ESa014") and can be passed
// wherever an identifier string is expected (ZoStringEx::LoadResString).
namespace ZOC::msg {

#define SA_MESSAGE(id, text) inline constexpr char id[] = #id;
#include "host/ZoMessages.def"
#undef SA_MESSAGE

}  // namespace ZOC::msg
