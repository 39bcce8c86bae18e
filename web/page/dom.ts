// Elements of the page by plain calls.

type Attributes = Record<string, string | number | boolean | null>;
type Child = Node | string | null;

// An element with attributes (true: present without a value; false and null: absent) and children. Texts
// are texts, never markup.
export function element<K extends keyof HTMLElementTagNameMap>(
    name: K,
    attributes: Attributes = {},
    ...children: Child[]
): HTMLElementTagNameMap[K] {
    const made = document.createElement(name);
    setAttributes(made, attributes);
    made.append(...children.filter((child) => child !== null));
    return made;
}

// The same in SVG.
export function shape<K extends keyof SVGElementTagNameMap>(
    name: K,
    attributes: Attributes = {},
    ...children: Child[]
): SVGElementTagNameMap[K] {
    const made = document.createElementNS('http://www.w3.org/2000/svg', name);
    setAttributes(made, attributes);
    made.append(...children.filter((child) => child !== null));
    return made;
}

function setAttributes(made: Element, attributes: Attributes): void {
    for (const [name, value] of Object.entries(attributes)) {
        if (name === 'style') {
            // The page's policy allows no attribute with styles; this is no attribute.
            (made as HTMLElement | SVGElement).style.cssText = String(value ?? '');
        } else if (value !== null && value !== false) {
            made.setAttribute(name, value === true ? '' : String(value));
        }
    }
}
