// For the menu of later versions of Cockpit; earlier ones read po.zh_CN.js.
cockpit.locale({
    "": { "plural-forms": () => 0, "language": "zh_CN", "language-direction": "ltr" },
    "Optional services": [null, "可选服务"],
});
