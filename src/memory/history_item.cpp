#include "memory/history_item.h"

std::atomic<long> Tqz_history_item_adapter_base::live{0};

void Tqz_history_item_adapter_base::redo_callback(void* item) {
    if (item) static_cast<Tqz_history_item_adapter_base*>(item)->redo();
}

void Tqz_history_item_adapter_base::undo_callback(void* item) {
    if (item) static_cast<Tqz_history_item_adapter_base*>(item)->undo();
}

void Tqz_history_item_adapter_base::erase_callback(void* item) {
    delete static_cast<Tqz_history_item_adapter_base*>(item);
}
