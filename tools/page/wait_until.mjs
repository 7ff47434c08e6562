// The one way of waiting: asks again until the condition gives something true.
export async function waitUntil(condition, what, limitMs = 20000) {
    const end = performance.now() + limitMs;
    for (;;) {
        const value = await condition();
        if (value) return value;
        if (performance.now() > end) throw new Error(`waited ${limitMs} ms in vain: ${what}`);
        await new Promise((again) => setTimeout(again, 10));
    }
}
