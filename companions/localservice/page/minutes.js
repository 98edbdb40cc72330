"use strict";

const kRefreshInterval = 3000; // ms
const kColumns = ["made", "received", "user", "team_id", "task_id", "active"];
let shown = "";

// The latest first. Texts are set as text, never parsed as markup.
function row(minute) {
    const made = document.createElement("tr");
    for (const column of kColumns)
        made.insertCell().textContent = minute[column];
    return made;
}

async function refresh() {
    let isFresh = false;
    try {
        const reply = await fetch(`/minutes${location.search}`);
        const text = await reply.text();
        isFresh = reply.ok;
        if (isFresh && text !== shown)
            document.getElementById("minutes").replaceChildren(...JSON.parse(text).minutes.reverse().map(row));
        shown = isFresh ? text : shown;
    } catch {
        // The service has ended or is starting again.
    }
    document.getElementById("received").classList.toggle("stale", !isFresh);
}

async function refreshForever() {
    if (!document.hidden)
        await refresh();
    setTimeout(refreshForever, kRefreshInterval);
}

for (const [name, value] of new URLSearchParams(location.search)) {
    const field = document.querySelector(`input[name="${CSS.escape(name)}"]`);
    if (field)
        field.value = value;
}
document.getElementById("json").search = location.search;
refreshForever();
