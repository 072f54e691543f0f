// Runs the program, and reads what it answers.
import { program, folder } from "./settings.js";

const cockpit = window.cockpit;
const _ = cockpit.gettext;
const prefix = "optimize_host: "; // of its own messages; its commands print, too

const isWaiting = message => message.includes(": waiting for ");

// Reads the lines of a call: objects and messages. Skips an object that a killed program left incomplete.
function read(output) {
    const answer = { items: [], end: null, messages: [] };
    for (const line of output.split("\n")) {
        if (line.startsWith(prefix)) {
            answer.messages.push(line.slice(prefix.length));
        } else if (line.startsWith("{")) {
            try {
                const object = JSON.parse(line);
                if (object.reply === "item") answer.items.push(object);
                else answer.end = object;
            } catch {
                // an incomplete object
            }
        }
    }
    return answer;
}

// Why a call failed, for people: the program's own reason if it gave one, otherwise the reason of Cockpit.
function reason(answer, failure) {
    if (answer.end?.error) return answer.end.error;
    if (failure.exit_signal) { // the messages of the program do not tell why it was ended
        return [cockpit.format(_("the program was ended by the signal $0"), failure.exit_signal),
            ...answer.messages.filter(message => !isWaiting(message))].join("; ");
    }
    if (answer.messages.length > 0) return answer.messages.join("; ");
    if (failure.problem === "not-found") return cockpit.format(_("$0 does not exist"), program);
    if (failure.problem) return cockpit.format(_("cannot run $0: $1"), program, cockpit.message(failure));
    return cockpit.message(failure);
}

// Makes one call with the rights of root and waits for its end. Never rejects. Returns the objects of the
// answer as `items` and `end`; `reason`, null after a success; `isCut`, whether the call may have begun but
// has no end, so that its effect is unknown; `isPossible`, false if the next call would fail the same way.
// Calls `onWait` when the program says that it waits for another call.
export async function call(words, onWait = () => {}) {
    let output = "";
    let failure = null;
    // Standard error goes to the same stream: so messages arrive while the call runs, and are kept if it is
    // killed.
    const process = cockpit.spawn([program, "--json", "-C", folder, ...words],
                                  { superuser: "require", err: "out" });
    process.stream(data => {
        output += data;
        if (read(output).messages.some(isWaiting)) onWait();
    });
    try {
        await process;
    } catch (exception) {
        failure = exception;
    }
    const answer = read(output);
    answer.isCut = answer.end === null && !["not-found", "access-denied"].includes(failure?.problem);
    answer.isPossible = !failure?.problem;
    if (answer.isCut && !failure) failure = { message: _("the program gave no answer") };
    answer.reason = failure || answer.end.error ? reason(answer, failure) : null;
    return answer;
}
