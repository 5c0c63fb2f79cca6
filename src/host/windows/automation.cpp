// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/automation.h"

#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

ShellResult ResultOf(HRESULT result) {
  if (SUCCEEDED(result)) return {};
  return {.error = static_cast<ErrorCode>(result)};
}

std::string TextOf(BSTR text) {
  return text == nullptr ? std::string() : FromWide({text, SysStringLen(text)});
}

// What an object says of its failure; frees the record's texts.
ShellResult ResultOf(EXCEPINFO& exception) {
  if (exception.pfnDeferredFillIn != nullptr) exception.pfnDeferredFillIn(&exception);
  ShellResult result{.error = static_cast<ErrorCode>(exception.scode),
                     .description = TextOf(exception.bstrDescription)};
  if (!result.Failed()) result.error = static_cast<ErrorCode>(DISP_E_EXCEPTION);
  SysFreeString(exception.bstrSource);
  SysFreeString(exception.bstrDescription);
  SysFreeString(exception.bstrHelpFile);
  return result;
}

}  // namespace

AutomationValue::AutomationValue(const std::string& text) : AutomationValue() {
  const std::wstring wide = ToWide(text);
  value_.vt = VT_BSTR;
  value_.bstrVal = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
}

AutomationValue::AutomationValue(std::int32_t number) : AutomationValue() {
  value_.vt = VT_I4;
  value_.lVal = number;
}

std::string AutomationValue::Text() const {
  return value_.vt == VT_BSTR ? TextOf(value_.bstrVal) : std::string();
}

ShellResult AutomationObject::Create(const wchar_t* class_name) {
  Reset();
  CLSID id{};
  const HRESULT known = CLSIDFromProgID(class_name, &id);
  if (FAILED(known)) return ResultOf(known);
  return ResultOf(CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER,
                                   IID_IDispatch, reinterpret_cast<void**>(&object_)));
}

ShellResult AutomationObject::Take(const AutomationValue& value) {
  const VARIANT& held = value.get();
  if (held.vt != VT_DISPATCH || held.pdispVal == nullptr) return ResultOf(E_NOINTERFACE);
  held.pdispVal->AddRef();
  Reset();
  object_ = held.pdispVal;
  return {};
}

void AutomationObject::Reset() {
  if (object_ != nullptr) object_->Release();
  object_ = nullptr;
}

ShellResult AutomationObject::Call(const wchar_t* method, AutomationValue* argument,
                                   AutomationValue& result) {
  return Invoke(method, DISPATCH_METHOD, argument, &result.get());
}

ShellResult AutomationObject::Get(const wchar_t* property, AutomationValue* argument,
                                  AutomationValue& result) {
  return Invoke(property, DISPATCH_METHOD | DISPATCH_PROPERTYGET, argument, &result.get());
}

ShellResult AutomationObject::Put(const wchar_t* property, AutomationValue& value) {
  return Invoke(property, DISPATCH_PROPERTYPUT, &value, nullptr);
}

ShellResult AutomationObject::Invoke(const wchar_t* name, WORD kind, AutomationValue* argument,
                                     VARIANT* result) {
  if (object_ == nullptr) return ResultOf(E_POINTER);
  auto* named = const_cast<wchar_t*>(name);  // not changed, whatever its type says
  DISPID id = 0;
  const HRESULT found = object_->GetIDsOfNames(IID_NULL, &named, 1, LOCALE_USER_DEFAULT, &id);
  if (FAILED(found)) return ResultOf(found);

  DISPID put = DISPID_PROPERTYPUT;
  DISPPARAMS parameters{};
  if (argument != nullptr) {
    parameters.rgvarg = &argument->get();
    parameters.cArgs = 1;
  }
  if (kind == DISPATCH_PROPERTYPUT) {
    parameters.rgdispidNamedArgs = &put;
    parameters.cNamedArgs = 1;
  }
  EXCEPINFO exception{};
  const HRESULT done = object_->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, kind, &parameters, result,
                                       &exception, nullptr);
  return done == DISP_E_EXCEPTION ? ResultOf(exception) : ResultOf(done);
}

}  // namespace vornalux
