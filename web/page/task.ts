// The text of an assignment. It comes from whoever made the page or the link, so it is shown with care: no markup of
// its own, only links to the web and to mail, and no pictures but those in the text itself.

import MarkdownIt from 'markdown-it';
import { element } from './dom';

const LONGEST = 32 * 1024; // characters
const PICTURE = /data:image\/\w+;base64,[\w+/=]*/g;

// Whether a text, but for its pictures, is too long to be shown as Markdown: some take seconds even of this length,
// and four times as many for each double of it.
export const isLong = (text: string): boolean =>
    text.length > LONGEST && text.replace(PICTURE, 'data:').length > LONGEST;

export function showTask(text: string): HTMLElement {
    if (isLong(text)) {
        // In parts, of which the browser lays out those that are seen.
        const parts = text.match(/(?:.*\n){1,100}|.+/g) ?? [];
        return element('div', { class: 'task-plain' }, ...parts.map((part) => element('pre', {}, part)));
    }
    const markdown = new MarkdownIt({ html: false, linkify: false });
    markdown.validateLink = (url) => /^(https?|mailto):/i.test(url.trim()) || isPicture(url);
    const made = element('div', { class: 'task-text' });
    const tokens = markdown.parse(text, {});
    for (const token of tokens) {
        // The policy of the page lets no element have a style of its own.
        const style = token.attrGet('style');
        if (style !== null) {
            token.attrs = [['class', String(style).replace('text-align:', 'align-')]];
        }
    }
    const html = markdown.renderer.render(tokens, markdown.options, {});
    const parsed = new DOMParser().parseFromString(html, 'text/html');
    parsed.querySelectorAll('a').forEach((link) => {
        if (/^(https?|mailto):/i.test(link.href)) {
            link.target = '_blank';
            link.rel = 'noopener noreferrer';
        } else {
            link.removeAttribute('href');
        }
    });
    parsed.querySelectorAll('img').forEach((picture) => {
        if (!isPicture(picture.getAttribute('src') ?? '')) {
            picture.replaceWith(picture.alt);
        }
    });
    made.append(...parsed.body.childNodes);
    return made;
}

function isPicture(url: string): boolean {
    return /^data:image\/(png|jpeg|gif|webp);base64,/i.test(url.trim());
}
