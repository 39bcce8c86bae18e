// The text of an assignment. It comes from whoever made the page or the link, so it is shown with care: no markup of
// its own, only links to the web and to mail, and no pictures but those in the text itself.

import MarkdownIt from 'markdown-it';
import { element } from './dom';

export function showTask(text: string): HTMLElement {
    const markdown = new MarkdownIt({ html: false, linkify: false });
    markdown.validateLink = (url) => /^(https?|mailto):/i.test(url.trim()) || isPicture(url);
    const made = element('div', { class: 'task-text' });
    const parsed = new DOMParser().parseFromString(markdown.render(text), 'text/html');
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
