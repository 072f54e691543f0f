// The table of services. A row lives as long as its service, so that a change takes away neither the focus
// nor a half-done click. All text is set as text: names and descriptions may look like markup.
import { Off, isAvailable, stateName } from "./configuration.js";

const cockpit = window.cockpit;
const _ = cockpit.gettext;
const body = document.querySelector("tbody");
const template = document.getElementById("row");
const rows = new Map(); // by name
let rowOfFocus = null;  // the row that had the focus when it was hidden

const box = row => row.querySelector("input");
const isGone = row => row.classList.contains("gone");
const present = () => [...rows.values()].filter(row => !isGone(row));

// Sets only what differs, so that nothing is read out twice.
export function setText(element, text) {
    if (element.textContent !== text) element.textContent = text;
}

function levels(level) {
    return level === "on" ? _("with xinetd") : [...level].join(" ");
}

function day(time) {
    const date = new Date(time);
    return isNaN(date) ? time : date.toLocaleString(cockpit.language.replace("_", "-"),
                                                    { dateStyle: "medium", timeStyle: "short" });
}

// What the record adds to the state.
function remark(service) {
    if (service.isPartly) return cockpit.format(_("only partly: was on in $0"), levels(service.levelsBefore));
    return service.state === Off && service.since ? cockpit.format(_("since $0"), day(service.since)) : "";
}

function fill(row, service) {
    const [name, description, state, level] = row.cells;
    row.dataset.name = service.name;
    row.classList.toggle("gone", !isAvailable(service));
    setText(name.querySelector("bdi"), service.name);
    setText(description.firstElementChild, service.desc);
    const badge = state.querySelector(".state");
    badge.className = `state state-${service.state}`;
    setText(badge, stateName(service.state));
    setText(state.querySelector("small"), remark(service));
    setText(level, levels(service.level));
}

// Remembers a row that is hidden while it has the focus. Gives the focus back when the row is shown again,
// unless the focus is elsewhere by then.
function followFocus(row, hadFocus) {
    if (hadFocus && isGone(row)) rowOfFocus = row;
    if (row !== rowOfFocus || isGone(row)) return;
    rowOfFocus = null;
    if (document.activeElement === document.body) box(row).focus();
}

// Brings the rows in line with the services, in their order. The row of a service that is not available is
// hidden and not removed: during a call of another program, a service may be unavailable for a moment.
export function showRows(services) {
    for (const [name, row] of rows) {
        if (!services.has(name)) {
            rows.delete(name);
            row.remove();
        }
    }
    let next = body.firstElementChild;
    for (const service of services.values()) {
        let row = rows.get(service.name);
        if (!row) {
            row = template.content.firstElementChild.cloneNode(true);
            rows.set(service.name, row);
        }
        const hadFocus = row.contains(document.activeElement);
        fill(row, service);
        if (row === next) next = row.nextElementSibling;
        else body.insertBefore(row, next);
        followFocus(row, hadFocus);
    }
}

// Shows the rows whose name or description has the text.
export function filterRows(text) {
    const wanted = text.trim().toLowerCase();
    for (const row of rows.values()) {
        const [name, description] = row.querySelectorAll("bdi");
        row.hidden = !(name.textContent + "\n" + description.textContent).toLowerCase().includes(wanted);
    }
}

export function shownBoxes() {
    return present().filter(row => !row.hidden).map(box);
}

// The names of the ticked services, and how many of them the filter hides.
export function ticked() {
    const chosen = present().filter(row => box(row).checked);
    return { names: chosen.map(row => row.dataset.name), hidden: chosen.filter(row => row.hidden).length };
}

export function untick(names) {
    for (const name of names) {
        if (rows.has(name)) box(rows.get(name)).checked = false;
    }
}
