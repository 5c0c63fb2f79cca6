// SPDX-License-Identifier: GPL-2.0-or-later
// A stand-in for the shell's automation object. Included by source files only.
#pragma once

#include "host/windows/system_headers.h"

// After the one that they need.
#include <ole2.h>
#include <oleauto.h>

#include <string>

namespace vornalux::test {

#pragma GCC diagnostic push
// Objects of this kind end themselves.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// An object of one member at a time: what is asked of it lands in a text that all doubles share.
class AutomationDouble final : public IDispatch {
 public:
  // "CreateShortcut(path) TargetPath=text Save() ..."
  static inline std::wstring heard;
  static inline int alive = 0;

  // In place of CoCreateInstance().
  static HRESULT WINAPI Create(REFCLSID, LPUNKNOWN, DWORD, REFIID, void** object) {
    *object = new AutomationDouble;
    return S_OK;
  }

  AutomationDouble() { ++alive; }
  AutomationDouble(const AutomationDouble&) = delete;
  AutomationDouble& operator=(const AutomationDouble&) = delete;

  HRESULT WINAPI QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG WINAPI AddRef() override { return ++references_; }
  ULONG WINAPI Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }
  HRESULT WINAPI GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
  HRESULT WINAPI GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }

  HRESULT WINAPI GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
    name_ = names[0];
    *ids = 7;
    return count == 1 && name_ != L"Hotkey" ? S_OK : DISP_E_UNKNOWNNAME;
  }

  HRESULT WINAPI Invoke(DISPID id, REFIID, LCID, WORD kind, DISPPARAMS* parameters, VARIANT* result,
                        EXCEPINFO* exception, UINT*) override {
    if (id != 7) return DISP_E_MEMBERNOTFOUND;
    const std::wstring argument = parameters->cArgs == 0 ? L"" : TextOf(parameters->rgvarg[0]);
    if (kind == DISPATCH_PROPERTYPUT) {
      const bool named =
          parameters->cNamedArgs == 1 && parameters->rgdispidNamedArgs[0] == DISPID_PROPERTYPUT;
      heard += name_ + L"=" + argument + (named ? L" " : L"? ");
      return S_OK;
    }
    if (name_ == L"Item") return Folder(argument, *result, *exception);
    if (name_ != L"SpecialFolders") heard += name_ + L"(" + argument + L") ";
    if (name_ == L"Save") return S_OK;
    result->vt = VT_DISPATCH;
    result->pdispVal = new AutomationDouble;
    return S_OK;
  }

 private:
  ~AutomationDouble() { --alive; }

  static std::wstring TextOf(const VARIANT& value) {
    return value.vt == VT_BSTR ? std::wstring(value.bstrVal) : std::to_wstring(value.lVal);
  }

  // Of other folders than this one the shell says that it fails.
  static HRESULT Folder(const std::wstring& name, VARIANT& result, EXCEPINFO& exception) {
    if (name != L"Templates") {
      exception.scode = E_NOTIMPL;
      exception.bstrDescription = SysAllocString(L"no such folder");
      return DISP_E_EXCEPTION;
    }
    result.vt = VT_BSTR;
    result.bstrVal = SysAllocString(L"X:\\");
    return S_OK;
  }

  ULONG references_ = 1;
  std::wstring name_;
};

#pragma GCC diagnostic pop

}  // namespace vornalux::test
