#include "support/string_adapter.h"

#include <cstring>

#include "code_page_text.h"

Tqz_string_adapter_base::Tqz_string_adapter_base()
    : adp_(qz_string_adp_create(&qz_ansi_string_callback, &qz_unicode_string_callback, this)) {}

Tqz_string_adapter_base::~Tqz_string_adapter_base() {
    qz_string_adp_destroy(adp_);
}

void Tqz_string_adapter_base::qz_ansi_string_callback(void* user, const char* text) {
    static_cast<Tqz_string_adapter_base*>(user)->feed(text);
}

void Tqz_string_adapter_base::qz_unicode_string_callback(void* user, const wchar_t* text) {
    static_cast<Tqz_string_adapter_base*>(user)->feed(text);
}

void Tqz_std_wstring_adapter::feed(const char* text) {
    if (!text) return target_->clear();
    *target_ = qz::basic::cp_to_wide(0, text, std::strlen(text));
}

void Tqz_std_wstring_adapter::feed(const wchar_t* text) {
    if (!text) return target_->clear();
    *target_ = text;
}
