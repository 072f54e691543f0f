// Reads the configuration: the services to show and the score.
const cockpit = window.cockpit;
const _ = cockpit.gettext;

export const On = 0, Off = 1, Ignored = 2; // the others are not available on the machine

export const isAvailable = service => [On, Off, Ignored].includes(service.state);

export function stateName(state) {
    return [_("On"), _("Switched off"), _("Ignored")][state] ?? _("Not available");
}

// Returns the services and the score in the text of a configuration; null stands for a missing file.
// Throws an Error if the text is not a configuration. Entries of one name are one service, as for the
// program.
export function parse(text) {
    if (text === null) throw new Error(_("the file is missing"));
    const document = new DOMParser().parseFromString(text, "application/xml");
    const error = document.querySelector("parsererror");
    if (error || document.documentElement.localName !== "kavra_conf") {
        throw new Error(_("the file is not a valid configuration"));
    }
    const services = new Map();
    for (const info of document.querySelectorAll("kavra_conf > service_optimize > info")) {
        const [id, name, op, level, desc] =
            ["id", "name", "op", "level", "desc"].map(each => info.getAttribute(each) ?? "");
        if (!services.has(name)) {
            services.set(name, { id, name, level, desc, state: parseInt(op, 10) || On });
        }
    }
    const score = document.querySelector("kavra_conf > myself_config > optimize_sorce");
    return { services, score: parseInt(score?.textContent, 10) || 0 };
}
