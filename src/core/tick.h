#pragma once

#include "core/block.h"

#include <QDateTime>

#include <optional>

namespace tovin {

// What the controller knows at one tick, gathered for the pure decision.
struct TickState {
    bool shieldUp = false;
    bool countdownShowing = false;
    bool finished = false;
    std::optional<QDateTime> pausedUntil;
    std::optional<QString> holdOff; // why nothing may interrupt right now
    std::optional<Block> retest;    // an overdue fitness retest, already made into a block

    bool operator==(const TickState&) const = default;
};

// One decision: serve a block, hold a due block off for a reason, or stay idle for a reason.
class Tick {
public:
    enum class Case { Fire, Holding, Idle };

    static Tick fire(Block block) { return Tick(Case::Fire, std::move(block), {}); }
    static Tick holding(Block block, QString reason) {
        return Tick(Case::Holding, std::move(block), std::move(reason));
    }
    static Tick idle(QString reason) { return Tick(Case::Idle, std::nullopt, std::move(reason)); }

    Case kind() const { return case_; }
    bool isFire() const { return case_ == Case::Fire; }
    // The block for fire and holding; none for idle.
    const std::optional<Block>& block() const { return block_; }
    // The reason for holding and idle; empty for fire.
    const QString& reason() const { return reason_; }

    // The stable one-line text for the journal: the same state gives the same text minute after
    // minute, which is what lets the journal write an unchanged state only once.
    QString summary() const;

    bool operator==(const Tick&) const = default;

private:
    Tick(Case c, std::optional<Block> block, QString reason)
        : case_(c)
        , block_(std::move(block))
        , reason_(std::move(reason)) {}

    Case case_;
    std::optional<Block> block_;
    QString reason_;
};

} // namespace tovin
