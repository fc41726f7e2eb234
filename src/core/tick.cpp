#include "core/tick.h"

namespace tovin {

QString Tick::summary() const {
    switch (case_) {
    case Case::Fire:
        return u"FIRE " + block_->label + u" (" + toString(block_->kind) + u", due " + block_->at +
               u')';
    case Case::Holding:
        return u"holding " + block_->label + u" — " + reason_;
    case Case::Idle:
        return u"idle — " + reason_;
    }
    return {};
}

} // namespace tovin
