#pragma once

class Orvana;

// The client's side of the updater, a program of its own.
namespace Updater {

// Waits up to five seconds for the answer of "pidof"; no answer means no.
bool isRunning();

// Opens the download page or starts the updater, depending on what the service has
// described. False when it has described nothing.
bool install(Orvana *client);

} // namespace Updater
