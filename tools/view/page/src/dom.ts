// SPDX-License-Identifier: MIT
/** Helpers for the document. Text is written only when it changes, because a change costs layout. */

export function byId<T extends HTMLElement = HTMLElement>(id: string): T {
  const element = document.getElementById(id);
  if (element === null) throw new Error(`no element #${id}`);
  return element as T;
}

export function setText(element: Element, text: string): void {
  if (element.textContent !== text) element.textContent = text;
}

export function setData(element: HTMLElement, key: string, value: string): void {
  if (element.dataset[key] !== value) element.dataset[key] = value;
}

export function element<K extends keyof HTMLElementTagNameMap>(
  name: K,
  properties: Partial<HTMLElementTagNameMap[K]> = {},
  ...children: (Node | string)[]
): HTMLElementTagNameMap[K] {
  const created = Object.assign(document.createElement(name), properties);
  created.append(...children);
  return created;
}

/** Announces a text to users of screen readers. Urgent texts interrupt. */
export function announce(text: string, urgent: boolean): void {
  byId(urgent ? 'assertive' : 'polite').textContent = text;
}
