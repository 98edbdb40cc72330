"use strict";

const kRefreshInterval = 3000; // ms
const shown = new Map(); // what each part of the page shows, as JSON
let token = "";

const element = id => document.getElementById(id);

// Texts are set as text, never parsed as markup.
function fromTemplate(name, data) {
    const made = element(name).content.cloneNode(true);
    for (const each of made.querySelectorAll("[data-text]"))
        each.textContent = data[each.dataset.text] ?? "";
    for (const each of made.querySelectorAll("[data-if]"))
        each.hidden = !data[each.dataset.if];
    for (const each of made.querySelectorAll("input:not([type=checkbox])"))
        each.defaultValue = data[each.name] ?? "";
    return made;
}

// Leaves a part alone whose data is the same, so that nobody's input is lost.
function show(id, data, render) {
    const json = JSON.stringify(data);
    if (shown.get(id) !== json)
        render(element(id), data);
    shown.set(id, json);
}

function list(id, items, render) {
    show(id, items, part => part.replaceChildren(...items.map(render)));
}

function localTime(iso, secondsBefore = 0) {
    return new Date(Date.parse(iso) - 1000 * secondsBefore).toLocaleString("ru").replace(",", "");
}

function taskRow(task) {
    const blocks = task.block !== "" && task.block !== "0";
    return fromTemplate("task-row", {
        ...task,
        task: task.id,
        blocks,
        important: task.importance > 0,
        deadline: task.deadline?.replace(" ", "T").slice(0, 16),
        block: blocks ? "0" : "1",
        blockAction: blocks ? "Снять блокировку" : "Заблокировать",
    });
}

function teamBlock(team) {
    const made = fromTemplate("team-block", { name: team.name, team: team.id });
    made.querySelector("tbody").append(...team.tasks.map(taskRow));
    return made;
}

function screenshotFigure(shot) {
    const made = fromTemplate("screenshot-figure",
        { caption: `${localTime(shot.arrived, shot.past)} · ${shot.email}` });
    made.querySelector("a").href = made.querySelector("img").src = `/screenshots/${shot.number}`;
    return made;
}

function render(state) {
    token = state.token;
    const titles = new Map(state.teams.flatMap(team => team.tasks).map(task => [task.id, task.title]));
    const title = id => titles.has(id) ? `${id} · ${titles.get(id)}` : id;
    for (const field of document.querySelectorAll("[name=mode]"))
        field.form.classList.toggle("current", field.value === state.outage);
    list("users", state.users, user => fromTemplate("user-row", user));
    list("reports", state.reports, report => fromTemplate("report-row", {
        ...report,
        moment: localTime(report.arrived, report.past),
        arrived: localTime(report.arrived),
        task: title(report.task_id),
    }));
    list("screenshots", state.screenshots, screenshotFigure);
    list("requests", state.deadline_requests, request => fromTemplate("request-row", {
        ...request,
        arrived: localTime(request.arrived),
        task: title(request.task_id),
        date: `${request.dl_date} ${request.dl_time}`,
    }));
    element("report-count").textContent = state.report_count;
    element("screenshot-count").textContent = state.screenshot_count;
    element("request-count").textContent = state.deadline_request_count;
    list("teams", state.teams, teamBlock);
    show("versions", state.versions, form => {
        form.version.defaultValue = state.versions[0]?.version ?? "";
        form.version2.defaultValue = state.versions[1]?.version ?? "";
    });
}

async function refresh() {
    let isFresh = false;
    try {
        const reply = await fetch("/state");
        isFresh = reply.ok;
        if (isFresh)
            render(await reply.json());
    } catch {
        // The service has ended or is starting again.
    }
    element("received").classList.toggle("stale", !isFresh);
}

async function refreshForever() {
    if (!document.hidden)
        await refresh();
    setTimeout(refreshForever, kRefreshInterval);
}

document.addEventListener("submit", async event => {
    event.preventDefault();
    const form = event.target;
    const fields = new URLSearchParams(new FormData(form));
    fields.set("token", token);
    let problem = "";
    try {
        const reply = await fetch(`/control/${form.dataset.action}`, { method: "POST", body: fields });
        if (reply.ok)
            form.reset();
        else
            problem = await reply.text();
    } catch {
        problem = "Сервис не отвечает";
    }
    element("problem").textContent = problem;
    await refresh();
});

refreshForever();
