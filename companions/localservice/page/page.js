"use strict";
// Only what was received is fetched again: the forms stay as the user left them.
const received = document.getElementById("received");
let shown = "";

async function refresh() {
    let reply = null;
    try {
        reply = document.hidden ? null : await fetch("/received");
        if (reply && reply.ok) {
            const text = await reply.text();
            if (shown !== text) {
                received.innerHTML = shown = text;
            }
        }
    } catch {
        reply = { ok: false };
    }
    received.classList.toggle("stale", reply !== null && !reply.ok);
    setTimeout(refresh, 3000);
}

setTimeout(refresh, 3000);
