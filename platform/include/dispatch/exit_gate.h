// The one gate through which the process ends. Every handler that the layer runs (peer event, reply, barrier, timer,
// main-queue block) enters it before and leaves it after. Who wants to end the process calls dispatch_gate_close first
// and may then delete what handlers use, and call exit.
#pragma once

// Closes the gate. Returns in the first caller only, when no other handler runs any more: no further handler is
// admitted from then on. Waits at most 500 ms for the running ones; if some still run then, the process ends here by
// _exit with `status`, without destructors. Every later caller sleeps for ever (the first one ends the process), and
// counts as a handler that has ended. May be called from inside a handler and from outside.
void dispatch_gate_close(int status);

// True once dispatch_gate_close has returned in its first caller. Handlers that sleep at the gate still stand on their
// threads' stacks: who waits for callbacks to end before destroying an object must not wait for them any more, they
// never touch anything again.
bool dispatch_gate_passed();
