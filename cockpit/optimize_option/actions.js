// The actions on services. An action makes several calls, so that it can be stopped between two.
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
        label: _("Stop ignoring"), running: _("No longer ignoring $0"),
        done: count => plural("$0 service is no longer ignored.",
                              "$0 services are no longer ignored.", count),
    },
};

// The program takes a number for an id.
const argument = service => /^[0-9]+$/.test(service.name) ? service.id : service.name;

// How many services one call takes. Each call lists twice, which is slow where systemd runs.
const sizeOfGroup = count => count > 5 ? 5 : 1;

const namesOf = services => services.map(service => service.name);

// Whether an answer says of each service what became of it. A line of an answer can be lost: if a command
// prints a text without an end of line, the next line of the answer is joined to it.
function isComplete(group, answer) {
    if (answer.end === null || answer.end.error) return true; // nothing was done
    const told = [...answer.end.unchanged ?? [], ...answer.end.not_handled ?? []];
    const names = new Set([...answer.items.flatMap(item => item.names ?? []),
        ...told.map(each => each.name ?? `${each.id}`)]);
    return group.every(service => names.has(service.name) || names.has(service.id));
}

// What an answer says about the services of its call: which were changed, and the failures.
function judge(group, answer) {
    const done = new Set(answer.items.flatMap(item => item.names ?? []));
    const refused = new Map(answer.end?.not_handled?.map(each => [each.name ?? `${each.id}`, each.message]));
    const failures = [...refused].map(([name, text]) => ({ names: [name], text }));
    if (answer.reason !== null && failures.length === 0) {
        failures.push({ names: namesOf(group).filter(name => !done.has(name)), text: answer.reason });
    }
    return { changed: group.filter(service => done.has(service.name)), failures };
}

// The same for a call without a complete answer: lists the services to find out what became of them.
async function findOut(action, group, answer, onWait) {
    const reason = answer.reason ?? _("the answer of the program is not complete");
    const listing = await call(["ls_service"], onWait);
    if (listing.reason !== null) {
        const text = cockpit.format(_("$0; whether services were changed is not known: $1"), reason, listing.reason);
        return { changed: [], failures: [{ names: namesOf(group), text }] };
    }
    const found = new Map(listing.items.flatMap(item => item.services).map(each => [each.name, each.op]));
    const stateOf = service => found.get(service.name);
    const textOf = service =>
        cockpit.format(_("$0; state found afterwards: $1"), reason, stateName(stateOf(service)));
    return {
        changed: group.filter(service => stateOf(service) === action.to && service.state !== action.to),
        failures: group.map(service => ({ names: [service.name], text: textOf(service) })),
    };
}

// Does an action to services. `watcher` has `look`, which reads the configuration again and returns its
// services, `show(group, position)`, `onWait`, and `isStopped`. Returns `changed`, the services that were
// changed; `failures`, with names and text; `left`, the number of services that were left as they were;
// `areOwn`, whether this action has made all changes: during a call without an answer, another program may
// have made some.
export async function run(action, services, watcher) {
    const result = { changed: [], failures: [], left: 0, areOwn: true };
    const size = sizeOfGroup(services.length);
    for (let position = 0; position < services.length; position += size) {
        const group = services.slice(position, position + size);
        watcher.show(group, position);
        const answer = await call([...action.words, "--", ...group.map(argument)], watcher.onWait);
        const isAnswered = !answer.isCut && isComplete(group, answer);
        result.areOwn = result.areOwn && isAnswered;
        const outcome = isAnswered ? judge(group, answer)
            : await findOut(action, group, answer, watcher.onWait);
        await watcher.look();
        result.changed.push(...outcome.changed);
        result.failures.push(...outcome.failures);
        if (watcher.isStopped() || !answer.isPossible) {
            result.left = Math.max(0, services.length - position - size);
            break;
        }
    }
    return result;
}

// The lines that describe a result. The page shows the failures after the last line.
export function describe(action, { changed, failures, left }) {
    const lines = [];
    const failed = failures.flatMap(failure => failure.names).length;
    if (changed.length > 0) lines.push(action.done(changed.length));
    if (left > 0) lines.push(plural("$0 service was left as it was.", "$0 services were left as they were.", left));
    if (failed > 0) lines.push(plural("Trouble with $0 service:", "Trouble with $0 services:", failed));
    return lines.length > 0 ? lines : [_("Nothing was changed: all services were in that state already.")];
}
