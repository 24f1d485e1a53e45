// A bracket on an updatable object for the length of a scope: begin_update
// now, end_update when the scope ends. A null object is no bracket.
#pragma once

#include "notify/updatable.h"

namespace qz::notify {

class Update_scope {
  public:
    explicit Update_scope(Iqz_updatable* target) : target_(target) {
        if (target_) target_->begin_update();
    }
    ~Update_scope() {
        if (target_) target_->end_update();
    }
    Update_scope(const Update_scope&) = delete;
    Update_scope& operator=(const Update_scope&) = delete;

  private:
    Iqz_updatable* target_;
};

}  // namespace qz::notify
