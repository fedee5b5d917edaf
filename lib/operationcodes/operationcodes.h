#pragma once

#include <string_view>

// The payment client's operations: the code that is its first argument and, for SBP, the
// function (-f) that goes with it. One table for the plug-in that sends them, the emulator that
// answers them and posctl that names them in the recordings. Plain C++, header only.
namespace operationcodes {

enum Code : int {
    Sale = 1,
    Refund = 2,
    Cancel = 3,
    Reconciliation = 4,
    ShortReport = 11,
    SlipCopy = 12,
    FullReport = 14,
    Balance = 15,
};

// SBP runs a payment and its status queries under the code of a sale, a refund and its status
// queries under the code of a refund, told apart by the function.
inline constexpr std::string_view paymentSbp = "paymentSbp";
inline constexpr std::string_view paymentStatusSbp = "paymentStatusSbp";
inline constexpr std::string_view returnSbp = "returnSbp";
inline constexpr std::string_view returnStatusSbp = "returnStatusSbp";

struct Operation
{
    int code;
    std::string_view function; // empty for a card or service operation
    std::string_view name;     // for people
    bool takesAmount;
};

inline constexpr Operation all[] = {
    {Sale, {}, "sale", true},
    {Refund, {}, "refund", true},
    {Cancel, {}, "cancel", true},
    {Reconciliation, {}, "reconciliation", false},
    {ShortReport, {}, "short report", false},
    {SlipCopy, {}, "slip copy", false},
    {FullReport, {}, "full report", false},
    {Balance, {}, "balance", false},
    {Sale, paymentSbp, "SBP payment", true},
    {Sale, paymentStatusSbp, "SBP payment status", false},
    {Refund, returnSbp, "SBP refund", true},
    {Refund, returnStatusSbp, "SBP refund status", false},
};

// The operation of a code and function, or null when the client has no such operation.
inline constexpr const Operation *find(int code, std::string_view function)
{
    for (const Operation &operation : all)
        if (operation.code == code && operation.function == function)
            return &operation;
    return nullptr;
}

} // namespace operationcodes
