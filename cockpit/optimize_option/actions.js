// What can be done to services, and how it is done: one call for each, so that it can be stopped between two.
import { On, Off, Ignored, stateName } from "./configuration.js";
import { call } from "./program.js";

const cockpit = window.cockpit;
const _ = cockpit.gettext;
const plural = (one, many, count) => cockpit.format(cockpit.ngettext(one, many, count), count);

// `from` tells whether a service is in the right state, `to` is the state that it gets. A service that is
// only partly off can be switched in both directions. `undo` names the opposite.
export const actions = {
    off: {
        words: ["optimize_service"], from: service => service.state === On, to: Off, undo: "back",
        label: _("Switch off"), running: _("Switching off $0"),
        done: count => plural("$0 service is switched off.", "$0 services are switched off.", count),
    },
    back: {
        words: ["restore_service"], to: On, undo: "off",
        from: service => service.state === Off || (service.state === On && service.isPartly),
        label: _("Switch back on"), running: _("Switching back on $0"),
        done: count => plural("$0 service is on again.", "$0 services are on again.", count),
    },
    ignore: {
        words: ["ignore_service", "on"], from: service => service.state === On, to: Ignored, undo: "attend",
        label: _("Ignore"), running: _("Ignoring $0"),
        done: count => plural("$0 service is ignored.", "$0 services are ignored.", count),
    },
    attend: {
        words: ["ignore_service", "off"], from: service => service.state === Ignored, to: On, undo: "ignore",
        label: _("Stop ignoring"), running: _("Stopping to ignore $0"),
        done: count => plural("$0 service is no longer ignored.",
                              "$0 services are no longer ignored.", count),
    },
};

// The program takes a number for an id.
const argument = service => /^[0-9]+$/.test(service.name) ? service.id : service.name;

// Lists again after a call that was cut short, and tells what became of its service.
async function findOut(action, service, answer, look) {
    const listing = await call(["ls_service"]);
    const found = (await look()).get(service.name)?.state;
    if (listing.reason !== null) {
        return { isDone: false,
                 text: cockpit.format(_("$0; what it did is not known: $1"), answer.reason, listing.reason) };
    }
    return { isDone: found === action.to && service.state !== action.to,
             text: cockpit.format(_("$0; found afterwards: $1"), answer.reason, stateName(found)) };
}

// Does an action to services, one after the other. `watcher` has `look`, which reads the configuration anew
// and gives its services, `show(service, position)`, `onWait`, and `isStopped`. Gives the services that were
// changed, the failures with their texts, and how many services were not begun.
export async function run(action, services, watcher) {
    const result = { changed: [], failures: [], left: 0 };
    for (const [position, service] of services.entries()) {
        if (watcher.isStopped()) {
            result.left = services.length - position;
            break;
        }
        watcher.show(service, position);
        const answer = await call([...action.words, "--", argument(service)], watcher.onWait);
        let isDone = answer.items.some(item => item.names?.includes(service.name));
        if (answer.isCut) {
            const outcome = await findOut(action, service, answer, watcher.look);
            isDone = outcome.isDone;
            result.failures.push({ service, text: outcome.text });
        } else {
            await watcher.look();
            if (answer.reason !== null) result.failures.push({ service, text: answer.reason });
        }
        if (isDone) result.changed.push(service);
        if (!answer.isPossible) {
            result.left = services.length - position - 1;
            break;
        }
    }
    return result;
}

// The lines that tell a result; the failures follow the last one.
export function describe(action, { changed, failures, left }) {
    const lines = [];
    if (changed.length > 0) lines.push(action.done(changed.length));
    if (left > 0) lines.push(plural("$0 service was not begun.", "$0 services were not begun.", left));
    if (failures.length > 0) lines.push(plural("$0 call failed:", "$0 calls failed:", failures.length));
    return lines.length > 0 ? lines : [_("It was so already. Nothing was changed.")];
}
