// The routes that act on the unit or on the process, and the thumbnail.
#pragma once

struct ApiRequest;

// Replies, then asks the operating system to reboot. This process goes on until that ends it.
void rebootUnit(const ApiRequest &request);

// Replies, then raises the stop flag. Whatever started the process starts it again.
void restartProcess(const ApiRequest &request);

// Replies once the unit's command tool has ended.
void resetInput(const ApiRequest &request);

// The image as it is now or, where it cannot be fetched, as it last was; always status 200.
// Two bytes stand behind the counted body, so the connection is closed after it.
void serveThumbnail(const ApiRequest &request);
