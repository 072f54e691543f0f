// Makes the page light or dark like the shell around it. Not a module, so that it runs before the page is drawn.
{
    const system = matchMedia("(prefers-color-scheme: dark)");
    const apply = style => {
        const chosen = style || localStorage.getItem("shell:style") || "auto";
        const dark = chosen === "dark" || (chosen === "auto" && system.matches);
        document.documentElement.classList.toggle("dark", dark);
    };
    addEventListener("cockpit-style", event => apply(event.detail.style)); // sent by the shell
    addEventListener("storage", () => apply());
    system.addEventListener("change", () => apply());
    apply();
}
