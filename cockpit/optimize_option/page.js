// The page: shows the configuration as it changes, and does what the buttons say.
import { actions, describe, run } from "./actions.js";
import { On, Off, Ignored, isAvailable, parse, stateName } from "./configuration.js";
import { call } from "./program.js";
import { filterRows, setText, showRows, shownBoxes, ticked, untick } from "./rows.js";
import { configuration, record } from "./settings.js";

const cockpit = window.cockpit;
const _ = cockpit.gettext;
const element = id => document.getElementById(id);
const permission = cockpit.permission({ admin: true });
const file = cockpit.file(configuration);

let latest = null;        // the last reading of the configuration: { text, error }
let all = new Map();      // the services, by name
let services = new Map(); // those that are available
let score = 0;
let lines = new Map();    // the lines of the record, by name
let problem = null;       // why the configuration cannot be shown as it is
let isBusy = false;       // this page runs a call
let isAsked = false;      // a listing was started after the page was opened
let isListed = false;     // the last listing was a success
let isStopped = false;
let undo = null;          // does the opposite of the last action

function showSummary() {
    const counts = [On, Off, Ignored].map(
        state => [...services.values()].filter(service => service.state === state).length);
    const total = services.size;
    document.querySelectorAll("dt[class] + dd").forEach((cell, state) => setText(cell, `${counts[state]}`));
    setText(element("score"), `${score}`);
    let start = 0;
    element("donut").querySelectorAll("circle[class]").forEach((circle, index) => {
        const share = total ? 100 * counts[index + 1] / total : 0;
        circle.setAttribute("stroke-dasharray", `${share} ${100 - share}`);
        circle.setAttribute("stroke-dashoffset", `${-start}`);
        circle.classList.toggle("none", share === 0);
        start += share;
    });
    element("donut").setAttribute("aria-label",
        cockpit.format(_("$0 of $1 services are switched off"), counts[Off], total));
    setText(element("donut").querySelector("text"), `${counts[Off]}/${total}`);
}

function showEmpty() {
    const text = services.size > 0 || problem ? ""
        : isListed ? _("This machine has none of the optional services. The page “Services” shows all of them.")
            : permission.allowed === false ? _("The services were not listed yet: turn on administrative access.")
                : "";
    setText(element("empty"), text);
    element("empty").hidden = text === "";
    for (const each of [element("summary"), element("tools"), document.querySelector("table")]) {
        each.hidden = services.size === 0;
    }
}

// Shows what depends on the ticks, on the rights and on a running call.
function showControls() {
    const { names, hidden } = ticked();
    const isPossible = permission.allowed && !problem && !isBusy;
    const text = hidden > 0 ? _("$0 selected, $1 of them hidden") : _("$0 selected");
    setText(element("selected"), names.length > 0 ? cockpit.format(text, names.length, hidden) : "");
    for (const [id, action] of Object.entries(actions)) {
        const count = names.filter(name => action.from(services.get(name))).length;
        setText(element(id), count > 0 ? `${action.label} (${count})` : action.label);
        element(id).disabled = !isPossible || count === 0;
    }
    const boxes = shownBoxes();
    const count = boxes.filter(box => box.checked).length;
    element("all").checked = count > 0 && count === boxes.length;
    element("all").indeterminate = count > 0 && count < boxes.length;
    element("refresh").setAttribute("aria-disabled", `${!permission.allowed || isBusy}`);
    element("undo").disabled = !isPossible;
    element("limited").hidden = permission.allowed !== false;
    setText(element("problem"), problem ? cockpit.format("$0: $1", configuration, problem) : "");
    element("problem").hidden = !problem;
}

// Shows the last reading of the configuration, with the lines of the record. Keeps the rows if the
// configuration could not be read.
function show() {
    try {
        if (latest.error) throw latest.error;
        const read = parse(latest.text);
        all = read.services;
        score = read.score;
        problem = null;
    } catch (error) {
        problem = error.problem ? cockpit.message(error) : error.message;
    }
    services = new Map([...all].filter(([, service]) => isAvailable(service)));
    for (const service of services.values()) {
        const line = lines.get(service.name);
        service.since = line?.since;
        service.isPartly = line?.state === "partly" && service.state === On;
        service.levelsBefore = line?.level;
    }
    showSummary();
    showRows(all);
    filterRows(element("filter").value);
    showEmpty();
    showControls();
    document.body.hidden = false;
}

// Reads the configuration again and shows it. Returns the services.
async function look() {
    await file.read().then(() => {}, () => {}); // the watch of the file gets the text or the error
    show();
    return services;
}

async function readRecord() {
    const answer = permission.allowed ? await call(["switched"]) : { items: [], reason: null };
    if (answer.reason === null) lines = new Map(answer.items.map(line => [line.name, line]));
}

function showProgress(text, position, total) {
    setText(element("progress-text"), text);
    const bar = document.querySelector("progress");
    if (total) [bar.max, bar.value] = [total, position];
    else bar.removeAttribute("value");
    element("progress").classList.toggle("floating", !total); // so that no button moves under a click
    element("stop").hidden = !(total > 1); // Stop works between two calls only
    element("progress").hidden = false;
}

const onWait = () => setText(element("progress-text"),
                             _("Waiting: another program is changing services"));

// Does something that calls the program. `work` returns a function that shows the result and returns its
// element. With `isFollowed`, the focus moves from the pressed button to the progress and then to the
// result, unless the user has moved it elsewhere meanwhile.
async function whileBusy(isFollowed, work) {
    isBusy = true;
    showControls();
    if (isFollowed) element("progress").focus();
    const finish = await work();
    await readRecord();
    isBusy = false;
    show();
    const isHere = element("progress").contains(document.activeElement);
    element("progress").hidden = true;
    const place = finish();
    if (isFollowed && isHere) place.focus();
}

function showResult(texts, failures, isFailure) {
    const list = document.createElement("ul");
    for (const { names, text } of failures) {
        const item = document.createElement("li");
        const name = document.createElement("bdi");
        name.textContent = names.join(", ");
        item.append(name, ": ", text);
        list.append(item);
    }
    element("result-text").replaceChildren(...texts.map(text => {
        const line = document.createElement("div");
        line.textContent = text;
        return line;
    }), ...(failures.length > 0 ? [list] : []));
    element("result").classList.toggle("bad", isFailure);
    element("undo").hidden = !undo;
    element("result").hidden = false;
    return element("result");
}

function list(isFollowed) {
    showProgress(_("Listing the services of this machine"));
    return whileBusy(isFollowed, async () => {
        const answer = await call(["ls_service"], onWait);
        await look();
        isListed = answer.reason === null;
        return () => {
            if (isListed) return element("refresh");
            undo = null;
            return showResult([_("The services of this machine could not be listed:"), answer.reason], [], true);
        };
    });
}

// Does an action to the services of these names that are in the right state. An Undo reports the others as
// failures.
function act(action, names, isUndo = false) {
    const chosen = names.map(name => services.get(name)).filter(each => each && action.from(each));
    const started = (group, position) => showProgress(
        cockpit.format(action.running, group.map(each => each.name).join(", ")), position, chosen.length);
    showProgress("", 0, chosen.length);
    isStopped = element("stop").disabled = false;
    element("result").hidden = true;
    return whileBusy(true, async () => {
        const others = names.filter(name => isUndo && !chosen.some(each => each.name === name));
        const result = await run(action, chosen, { look, show: started, onWait, isStopped: () => isStopped });
        result.failures.push(...others.map(
            name => ({ names: [name], text: stateName(services.get(name)?.state) })));
        return () => {
            const changed = result.changed.map(service => service.name);
            untick(changed);
            showControls();
            // No Undo if a service was only partly off: no operation makes it partly off again.
            undo = changed.length > 0 && result.areOwn && !result.changed.some(service => service.isPartly)
                ? () => act(actions[action.undo], changed, true) : null;
            return showResult(describe(action, result), result.failures, result.failures.length > 0);
        };
    });
}

function onClick(id, work) {
    element(id).addEventListener("click", work);
}

function makeButtons() {
    for (const [id, action] of Object.entries(actions)) {
        const button = document.createElement("button");
        button.id = id;
        button.type = "button";
        element("tools").append(button);
        onClick(id, () => act(action, ticked().names));
    }
}

function listenToPerson() {
    onClick("refresh", () => !isBusy && permission.allowed && list(true));
    onClick("stop", () => {
        isStopped = true;
        element("stop").disabled = true;
        setText(element("progress-text"), _("Stopping after this call"));
        element("progress").focus();
    });
    onClick("undo", () => undo());
    onClick("close", () => {
        element("result").hidden = true;
        element(services.size > 0 ? "filter" : "refresh").focus();
    });
    onClick("all", () => {
        shownBoxes().forEach(box => { box.checked = element("all").checked; });
        showControls();
    });
    document.querySelector("tbody").addEventListener("change", showControls);
    element("filter").addEventListener("input", () => {
        filterRows(element("filter").value);
        showControls();
    });
}

function listenToMachine() {
    file.watch((text, tag, error) => {
        latest = { text, error };
        if (!isBusy) show();
        listOnce();
    });
    // Only root can read the record, but every user can see that it has changed.
    cockpit.file(record).watch(async () => {
        if (isBusy || latest === null) return;
        await readRecord();
        if (!isBusy) show();
    }, { read: false });
    permission.addEventListener("changed", async () => {
        if (latest !== null && !isBusy) {
            if (isAsked) await readRecord(); // otherwise the first listing does
            if (!isBusy) show();
        }
        listOnce();
    });
}

// Lists the machine as soon as the configuration was read and there are rights.
function listOnce() {
    if (!permission.allowed || latest === null || isAsked) return;
    isAsked = true;
    list(false);
}

cockpit.translate();
document.documentElement.lang = cockpit.language.replace("_", "-");
makeButtons();
listenToPerson();
listenToMachine();
