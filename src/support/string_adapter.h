// String adapters on the C++ side: an object that receives the text fed to a
// qzk_basic adapter handle.
#pragma once

#include <string>

#include "qzk_basic.h"

// Owns an adapter handle whose feeds reach the virtual feed operations.
class Tqz_string_adapter_base {
  public:
    Tqz_string_adapter_base();
    virtual ~Tqz_string_adapter_base();
    Tqz_string_adapter_base(const Tqz_string_adapter_base&) = delete;
    Tqz_string_adapter_base& operator=(const Tqz_string_adapter_base&) = delete;

    Iqz_string_adp* handle() const { return adp_; }
    virtual void feed(const char* text) = 0;
    virtual void feed(const wchar_t* text) = 0;

    static void qz_ansi_string_callback(void* user, const char* text);
    static void qz_unicode_string_callback(void* user, const wchar_t* text);

  private:
    Iqz_string_adp* adp_;
};

// Collects the text fed to it into a caller's wide string.
class Tqz_std_wstring_adapter : public Tqz_string_adapter_base {
  public:
    explicit Tqz_std_wstring_adapter(std::wstring* target) : target_(target) {}
    // Null empties the target; narrow text is read in the ANSI code page.
    void feed(const char* text) override;
    void feed(const wchar_t* text) override;

  private:
    std::wstring* target_;
};
