// What an endpoint's read or write answers in place of a number of bytes.
#pragma once

constexpr int kEndOfStream = 0;
constexpr int kFailed = -1;
// Nothing happened that the pump must act on: call again. It is also how a listener gives
// control back between the steps of accepting; bytes that were to be written then are lost.
constexpr int kNothingDone = -2;
// libsrt took none of the bytes within a second, as a peer that is alive takes nothing from
// it: call again with the same.
constexpr int kNothingTaken = -3;
